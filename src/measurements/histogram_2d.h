// The two-dimensional histogram of a T2 or T3 run: pairs of events by two delays, counted into the caller's
// array.
#pragma once

#include "measurements/measurement_steps.h"

namespace Tessel {

struct Histogram2d // guarded by ManisLock
{
    CountArray Counts; // NumBinsY rows x NumBinsX columns

    static const MeasurementSteps<Histogram2d> Steps;
};

} // namespace Tessel
