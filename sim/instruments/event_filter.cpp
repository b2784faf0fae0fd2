// The event filter. One thread.
#include "sim/instruments/event_filter.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

bool isMarked(uint64_t mask, bool withSync, uint8_t channel)
{
    return channel < 64 ? (mask >> channel & 1) != 0 : channel == syncChannel && withSync;
}

// Counts used neighbours, up to the number that is needed.
bool hasMatch(const FilterStage &stage, const FilterSettings &filter, size_t at)
{
    const Event &event = stage.Window[at];
    const auto range = static_cast<uint64_t>(filter.RangePs);
    int32_t missing = filter.MatchCount;
    for (size_t i = at; i > 0 && missing > 0; --i) {
        const Event &other = stage.Window[i - 1];
        if (event.TimePs - other.TimePs > range) break;
        if (isMarked(filter.Use, filter.UseSync, other.Channel)) --missing;
    }
    for (size_t i = at + 1; i < stage.Window.size() && missing > 0; ++i) {
        const Event &other = stage.Window[i];
        if (other.TimePs - event.TimePs > range) break;
        if (isMarked(filter.Use, filter.UseSync, other.Channel)) --missing;
    }
    return missing == 0;
}

bool passes(const FilterStage &stage, const FilterSettings &filter, size_t at)
{
    const uint8_t channel = stage.Window[at].Channel;
    if (channel >= firstMarkerChannel || isMarked(filter.Pass, filter.PassSync, channel)) return true;
    if (!isMarked(filter.Use, filter.UseSync, channel)) return false;
    return hasMatch(stage, filter, at) != filter.IsInverse;
}

// Decides on the events before `endPs` by the filter that `filterOf` names for each; null: it passes.
template <class FilterOf>
void decide(FilterStage &stage, std::span<const Event> events, uint64_t endPs, uint64_t rangePs, Truth &truth,
            std::vector<Event> &passed, const FilterOf &filterOf)
{
    stage.Window.insert(stage.Window.end(), events.begin(), events.end());
    for (; stage.Undecided < stage.Window.size(); ++stage.Undecided) {
        const Event &event = stage.Window[stage.Undecided];
        if (event.TimePs >= endPs) break;
        const FilterSettings *filter = filterOf(event.Channel);
        if (!filter || passes(stage, *filter, stage.Undecided))
            passed.push_back(event);
        else
            lose(truth, event, Loss::Filter);
    }
    const auto old = std::partition_point(stage.Window.begin(), stage.Window.end(),
                                          [&](const Event &event) { return event.TimePs + rangePs < endPs; });
    const auto gone = std::min(stage.Undecided, static_cast<size_t>(old - stage.Window.begin()));
    stage.Window.erase(stage.Window.begin(), stage.Window.begin() + static_cast<std::ptrdiff_t>(gone));
    stage.Undecided -= gone;
}

void count(std::span<const Event> events, uint64_t *counts)
{
    for (const Event &event : events) ++counts[event.Channel];
}

} // namespace

void setFilter(EventFilter &filter, const Settings &settings, int32_t rowWidth)
{
    filter.RowWidth = rowWidth;
    filter.Main = settings.MainFilter;
    filter.HasRows = false;
    filter.RowRangePs = 0;
    for (int row = 0; row < numFilterRows; ++row) {
        filter.Rows[row] = settings.RowFilters[row];
        if (!filter.Rows[row].IsOn) continue;
        filter.HasRows = true;
        filter.RowRangePs = std::max(filter.RowRangePs, static_cast<uint64_t>(filter.Rows[row].RangePs));
    }
}

uint64_t lookAheadPs(const EventFilter &filter)
{
    return (filter.HasRows ? filter.RowRangePs : 0) +
           (filter.Main.IsOn ? static_cast<uint64_t>(filter.Main.RangePs) : 0);
}

void filterEvents(EventFilter &filter, std::span<const Event> events, uint64_t knownPs, Truth &truth,
                  std::vector<Event> &passed)
{
    filter.AfterRows.clear();
    const uint64_t rowEndPs = knownPs - std::min(knownPs, filter.RowRangePs);
    decide(filter.RowStage, events, rowEndPs, filter.RowRangePs, truth, filter.AfterRows,
           [&](uint8_t channel) -> const FilterSettings * {
               const int32_t row = channel / filter.RowWidth;
               return channel < 64 && row < numFilterRows && filter.Rows[row].IsOn ? &filter.Rows[row]
                                                                                   : nullptr;
           });
    count(filter.AfterRows, filter.RowCounts);
    const size_t before = passed.size();
    const uint64_t mainRangePs = filter.Main.IsOn ? static_cast<uint64_t>(filter.Main.RangePs) : 0;
    decide(filter.MainStage, filter.AfterRows, rowEndPs - std::min(rowEndPs, mainRangePs), mainRangePs, truth,
           passed, [&](uint8_t) { return filter.Main.IsOn ? &filter.Main : nullptr; });
    count(std::span(passed).subspan(before), filter.MainCounts);
}

} // namespace Tessel::Sim
