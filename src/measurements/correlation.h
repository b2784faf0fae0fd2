// The correlation of two channels of a T2 or T3 run.
#pragma once

#include "measurements/correlation_work.h"
#include "measurements/measurement_steps.h"

#include <memory>

namespace Tessel {

struct Correlation // guarded by ManisLock
{
    double *Curves = nullptr; // the caller's y values
    uint64_t CurveSize = 0;   // of all curves
    std::shared_ptr<CorrelationWork> Work{};

    static const MeasurementSteps<Correlation> Steps;
};

} // namespace Tessel
