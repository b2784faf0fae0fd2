// The histogram of a T2 or T3 run: one per channel, counted into the caller's array.
#pragma once

#include "measurements/measurement_steps.h"

namespace Tessel {

struct Histogram // guarded by ManisLock
{
    CountArray Counts;        // a row for each channel
    uint64_t LastRefTime = 0; // ps, of the last reference event; 0: none seen. T2 only

    static const MeasurementSteps<Histogram> Steps;
};

} // namespace Tessel
