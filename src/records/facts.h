// What stages and counters know of the device that a stream comes from. Constant during a run, with one
// exception: on an instrument MeasureThread sets SyncPeriodPs of T3 before it hands over the first words.
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
    bool IsLive = false;         // an instrument: the newest data replace what has no room
    bool IgnoresCode18 = false;  // special words of channel 18 are no fault
};

} // namespace Tessel
