// The time trace of a T2 or T3 run: counts per bin of time, a row for each channel, that scroll through the
// caller's array.
#pragma once

#include "measurements/measurement_steps.h"
#include "measurements/time_trace_count.h"

namespace Tessel {

struct TimeTrace // guarded by ManisLock
{
    CountArray Counts;
    uint64_t *FirstBin = nullptr; // the caller's: absolute number of the window's first bin; null: not wanted
    TimeTraceWork Window{};       // the bins that aren't published yet

    static const MeasurementSteps<TimeTrace> Steps;
};

// To the caller. ManisLock is held.
inline void tellFirstBin(const TimeTrace &trace)
{
    if (trace.FirstBin) *trace.FirstBin = trace.Window.FirstBin;
}

} // namespace Tessel
