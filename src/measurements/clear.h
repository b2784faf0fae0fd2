// Emptying the result of a measurement.
#pragma once

#include "records/refs.h"

namespace Tessel {

// For the next step of a sequence: sets every element of the run's result to 0 and asks every stage to reset
// itself, under all locks of the chain. The stages of a recorded file are asked nothing: where in the stream it
// would reach them depends on how far they are.
void clearResult(const DeviceRef &target, Run &run);

// The host's request: also drops the rest of the batch that is being counted. Nothing on a device that isn't
// initialised or has measured nothing.
void clearMeasure(const DeviceRef &target);

} // namespace Tessel
