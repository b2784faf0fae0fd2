// What is in a table of events, seen in one pass over it.
#pragma once

#include "columns/event_table.h"
#include "columns/number_scaler.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct Survey
{
    uint64_t Events = 0;
    uint64_t Earliest = ~uint64_t(0), Latest = 0; // in units of the recording
    uint64_t StepsBack = 0, LargestStep = 0;      // rows before the one before; how far before the latest
    std::string FirstBack;                        // the place of the first of them
    uint64_t FirstStep = 0;
    bool HasFractions = false;                                             // among the times, of a tick
    std::vector<uint64_t> Counts = std::vector<uint64_t>(mostChannels, 0); // by recorded number
};

// A block of rows in units of the recording.
struct ScaledRows
{
    Rows From;
    std::vector<uint64_t> Times, Dtimes; // Dtimes is empty without microtimes
};

struct Scaling
{
    NumberScaler Times, Microtimes;
};

// False: there are no more rows. Throws Failure.
bool nextScaled(EventTable &table, Scaling &scaling, ScaledRows &rows);

// `shown` is called after each block.
Survey survey(EventTable &table, Scaling &scaling, const std::function<void(uint64_t events)> &shown);

} // namespace Tessel::Cli
