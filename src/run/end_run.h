// Ending a run that is in the way of another start, of a close, or of the library's end.
#pragma once

#include "records/refs.h"
#include "threads/paces.h"

#include <chrono>

namespace Tessel {

// Stops the run on the device, if one is live, and waits for its end. After some seconds, with a short
// `patience` at once, it aborts the run, and waits `patience` more. False: the run is still live after that,
// and keeps its memory.
bool endRun(const DeviceRef &target, std::chrono::milliseconds patience = Pace::aborting);

// Waits for the phase Over. False: not within `patience`.
bool waitOver(Run &run, std::chrono::milliseconds patience);

} // namespace Tessel
