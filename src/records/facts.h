// What stages and counters have to know of the device behind a stream. Constant during a run, with one
// exception: on an instrument MeasureThread settles SyncPeriodPs of T3 before the first words are handed over.
#pragma once

#include "records/enums.h"

#include <cstdint>
#include <string>

namespace Tessel {

struct StreamFacts
{
    std::string ID{};
    MeasMode Mode = MeasMode::T3;
    int64_t SyncPeriodPs = 1;    // raw time to ps: T2 the base resolution, T3 the sync period
    double Resolution = 1.0;     // ps
    double BaseResolution = 1.0; // ps
    int32_t NumChans = 0;        // inputs, without the sync
    uint32_t StopCount = 0;      // a histogram ends when a bin reaches it; 0: never
    bool MayWait = false;        // a full store makes the stream wait; live data can't
    bool IsLive = false;         // an instrument: what doesn't fit makes room for what is newer
    bool IgnoresCode18 = false;  // special words of channel 18 mean nothing
};

} // namespace Tessel
