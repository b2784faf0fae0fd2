// The event filter, under the names of the three families that have it.
#include "sim/instruments/exports/exporting.h"

using namespace Tessel::Sim;

#if ON_THESE(ON_FILTERS)

namespace {

int32_t rates(std::string_view op, int32_t idx, bool afterMain, int32_t *sync, int32_t *perInput)
{
    return on(op, idx, {sync, perInput},
              [&](Instrument &instrument) { return filteredRates(instrument, afterMain, *sync, perInput); });
}

} // namespace

OPERATION(SetFilterTestMode)(int32_t idx, int32_t test)
{
    return on("SetFilterTestMode", idx,
              [&](Instrument &instrument) { return setFilterTest(instrument, test); });
}

#endif

#if ON_THESE(ON_LM70)

OPERATION(EnableEventFilter)(int32_t idx, int32_t enable)
{
    return on("EnableEventFilter", idx,
              [&](Instrument &instrument) { return enableFilter(instrument, {}, enable); });
}

OPERATION(SetEventFilterChannels)(int32_t idx, int32_t use, int32_t pass)
{
    return on("SetEventFilterChannels", idx,
              [&](Instrument &instrument) { return setMainFilterChannels(instrument, 0, use, pass); });
}

OPERATION(SetEventFilterParams)(int32_t idx, int32_t rangePs, int32_t matchCount, int32_t inverse)
{
    return on("SetEventFilterParams", idx, [&](Instrument &instrument) {
        return setMainFilter(instrument, {rangePs, matchCount, inverse});
    });
}

OPERATION(GetFilterOutputRates)(int32_t idx, int32_t *sync, int32_t *perInput)
{
    return rates("GetFilterOutputRates", idx, true, sync, perInput);
}

OPERATION(GetFilterInputRates)(int32_t idx, int32_t *sync, int32_t *perInput)
{
    return rates("GetFilterInputRates", idx, false, sync, perInput);
}

#endif

#if ON_THESE(ON_ZP | ON_CD90)

OPERATION(EnableMainEventFilter)(int32_t idx, int32_t enable)
{
    return on("EnableMainEventFilter", idx,
              [&](Instrument &instrument) { return enableFilter(instrument, {}, enable); });
}

OPERATION(SetMainEventFilterChannels)(int32_t idx, int32_t row, int32_t use, int32_t pass)
{
    return on("SetMainEventFilterChannels", idx,
              [&](Instrument &instrument) { return setMainFilterChannels(instrument, row, use, pass); });
}

OPERATION(SetMainEventFilterParams)(int32_t idx, int32_t rangePs, int32_t matchCount, int32_t inverse)
{
    return on("SetMainEventFilterParams", idx, [&](Instrument &instrument) {
        return setMainFilter(instrument, {rangePs, matchCount, inverse});
    });
}

OPERATION(GetMainFilteredRates)(int32_t idx, int32_t *sync, int32_t *perInput)
{
    return rates("GetMainFilteredRates", idx, true, sync, perInput);
}

#endif

// One family's row is the other's group.
#if ON_THESE(ON_ZP)
#define ENABLE_ROW EnableRowEventFilter
#define SET_ROW SetRowEventFilter
#define ROW_RATES GetRowFilteredRates
#elif ON_THESE(ON_CD90)
#define ENABLE_ROW EnableGroupEventFilter
#define SET_ROW SetGroupEventFilter
#define ROW_RATES GetGroupFilteredRates
#endif

#if ON_THESE(ON_ZP | ON_CD90)

#define TEXT_OF(name) #name
#define NAME_OF(name) TEXT_OF(name)

OPERATION(ENABLE_ROW)(int32_t idx, int32_t row, int32_t enable)
{
    return on(NAME_OF(ENABLE_ROW), idx,
              [&](Instrument &instrument) { return enableFilter(instrument, row, enable); });
}

OPERATION(SET_ROW)
(int32_t idx, int32_t row, int32_t rangePs, int32_t matchCount, int32_t inverse, int32_t use, int32_t pass)
{
    return on(NAME_OF(SET_ROW), idx, [&](Instrument &instrument) {
        return setRowFilter(instrument, row, {rangePs, matchCount, inverse}, use, pass);
    });
}

OPERATION(ROW_RATES)(int32_t idx, int32_t *sync, int32_t *perInput)
{
    return rates(NAME_OF(ROW_RATES), idx, false, sync, perInput);
}

#endif
