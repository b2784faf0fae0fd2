// The histogram of a recorded file, counted side by side.
#pragma once

#include "measurements/histogram.h"
#include "measurements/side_by_side.h"

namespace Tessel {

// None with a stop count, which looks at each event.
SideBySide histogramSides(RunRef &run, Histogram &result, Slices &all);

} // namespace Tessel
