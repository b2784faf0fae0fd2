// What a thread of a run holds: everything that it touches lives as long as the thread.
#pragma once

#include "api/library.h"

namespace Tessel {

struct RunRef
{
    DeviceRef target;
    std::shared_ptr<Run> run;

    Device &device() const { return *target.device; }
    MeasContext &context() const { return *target.context; }
};

} // namespace Tessel
