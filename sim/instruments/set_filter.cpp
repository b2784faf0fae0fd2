// Settings of the event filter. Under the instrument's lock.
#include "sim/instruments/instrument.h"

namespace Tessel::Sim {

namespace {

constexpr int32_t syncBit = 256, channelBits = 255;

bool isWrong(const Instrument &instrument, const FilterParams &params)
{
    return !isIn({0, factsOf(instrument).FilterRangePs}, params.RangePs) || !isIn({1, 6}, params.MatchCount);
}

void setParams(FilterSettings &filter, const FilterParams &params)
{
    filter.RangePs = params.RangePs;
    filter.MatchCount = params.MatchCount;
    filter.IsInverse = params.Inverse != 0;
}

// The channels of a row in the mask of all.
void setRowBits(uint64_t &mask, int32_t row, int32_t width, int32_t bits)
{
    if (row * width >= 64) return;
    const uint64_t all = ((uint64_t(1) << width) - 1) << row * width;
    mask = (mask & ~all) | (static_cast<uint64_t>(bits & channelBits) << row * width & all);
}

int32_t lacksFilter(const Instrument &instrument, int32_t row)
{
    if ((instrument.What.Features & FeatureFilter) == 0) return notAvailable;
    return isIn({0, numFilterRows - 1}, row) ? ok : badArgument;
}

} // namespace

int32_t enableFilter(Instrument &instrument, std::optional<int32_t> row, int32_t enable)
{
    if (const int32_t code = lacksFilter(instrument, row.value_or(0))) return code;
    Settings &settings = instrument.Settings;
    (row ? settings.RowFilters[*row] : settings.MainFilter).IsOn = enable != 0;
    return applied(instrument);
}

int32_t setMainFilter(Instrument &instrument, const FilterParams &params)
{
    if (const int32_t code = lacksFilter(instrument, 0)) return code;
    if (isWrong(instrument, params)) return badArgument;
    setParams(instrument.Settings.MainFilter, params);
    return applied(instrument);
}

int32_t setMainFilterChannels(Instrument &instrument, int32_t row, int32_t use, int32_t pass)
{
    if (const int32_t code = lacksFilter(instrument, row)) return code;
    if (!isIn({0, 511}, use) || !isIn({0, 511}, pass)) return badArgument;
    FilterSettings &main = instrument.Settings.MainFilter;
    const int32_t width = filterRowWidth(instrument.What);
    setRowBits(main.Use, row, width, use);
    setRowBits(main.Pass, row, width, pass);
    main.UseSync = (use & syncBit) != 0;
    main.PassSync = (pass & syncBit) != 0;
    return applied(instrument);
}

int32_t setRowFilter(Instrument &instrument, int32_t row, const FilterParams &params, int32_t use, int32_t pass)
{
    if (const int32_t code = lacksFilter(instrument, row)) return code;
    if (isWrong(instrument, params) || !isIn({0, channelBits}, use) || !isIn({0, channelBits}, pass))
        return badArgument;
    FilterSettings &filter = instrument.Settings.RowFilters[row];
    const int32_t width = filterRowWidth(instrument.What);
    setParams(filter, params);
    setRowBits(filter.Use, row, width, use);
    setRowBits(filter.Pass, row, width, pass);
    return applied(instrument);
}

int32_t setFilterTest(Instrument &instrument, int32_t test)
{
    if (const int32_t code = lacksFilter(instrument, 0)) return code;
    instrument.Settings.FilterTests = test != 0;
    return applied(instrument);
}

} // namespace Tessel::Sim
