// The time trace of a recorded file, counted side by side.
#pragma once

#include "measurements/side_by_side.h"
#include "measurements/time_trace.h"

namespace Tessel {

SideBySide traceSides(RunRef &run, TimeTrace &result, Slices &all);

} // namespace Tessel
