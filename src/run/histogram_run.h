// A run in which the instrument builds the histograms: nothing streams, MeasureThread polls and fetches.
#pragma once

#include "records/refs.h"

namespace Tessel {

// From set-up to tear-down, on MeasureThread. After it no other thread of the run is left.
void runHistogramming(RunRef &ref);

} // namespace Tessel
