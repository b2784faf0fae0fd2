// The g2 of a recorded file, counted side by side.
#pragma once

#include "measurements/correlation.h"
#include "measurements/side_by_side.h"

namespace Tessel {

// None for FCS and FFCS: what they count depends on when the first pairs of the longest lag were seen, and
// their rings hold more than is worth handing on.
SideBySide g2Sides(RunRef &run, Correlation &result, Slices &all);

} // namespace Tessel
