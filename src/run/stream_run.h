// A run of a stream, T2 or T3: the source's records pass ProcessThread and the stages and are counted here.
#pragma once

#include "records/refs.h"

namespace Tessel {

// From set-up to tear-down, on MeasureThread. In the end no other thread of the run is left.
void runStream(RunRef &ref);

} // namespace Tessel
