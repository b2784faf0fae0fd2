// The event filter of the hardware: a stage for each row of channels, and the main filter behind them. An event
// of the used channels passes if at least MatchCount others of them lie within RangePs of it; inverse: if not.
// Events of the passed channels always pass, all others never.
#pragma once

#include "sim/instruments/reorder.h"
#include "sim/instruments/settings.h"
#include "sim/instruments/truth.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Tessel::Sim {

// The events of a stage's last RangePs and those that it hasn't decided on: Window[Undecided..].
struct FilterStage
{
    std::vector<Event> Window;
    size_t Undecided = 0;
};

struct EventFilter
{
    int32_t RowWidth = 8;
    bool HasRows = false;
    FilterSettings Rows[numFilterRows], Main;
    uint64_t RowRangePs = 0; // the longest
    FilterStage RowStage, MainStage;
    uint64_t RowCounts[maxChannels] = {}, MainCounts[maxChannels] = {}; // events that passed
    std::vector<Event> AfterRows;
};

void setFilter(EventFilter &filter, const Settings &settings, int32_t rowWidth);

// How far ahead of the last decision the filter must see.
uint64_t lookAheadPs(const EventFilter &filter);

// Takes events in order, those before `knownPs`, and appends those that pass and lie before `knownPs` -
// lookAheadPs.
void filterEvents(EventFilter &filter, std::span<const Event> events, uint64_t knownPs, Truth &truth,
                  std::vector<Event> &passed);

} // namespace Tessel::Sim
