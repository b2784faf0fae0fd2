// A run of a stream, T2 or T3: words are read, decoded, passed through the chain and counted here.
#pragma once

#include "records/refs.h"

namespace Tessel {

// From set-up to tear-down, on MeasureThread. After it no other thread of the run is left.
void runStream(RunRef &ref);

} // namespace Tessel
