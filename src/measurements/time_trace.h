// The time trace of a run: sizing, giving out. ManisLock is held for all of it.
#pragma once

#include "records/refs.h"

namespace Tessel {

// Makes the window of the run's trace. False: there is no memory for it.
bool makeTraceWork(RunRef &run);

// Scrolls what is complete into the result, at the end of the run the last bin as well, and tells the caller
// the window's first bin.
void giveOutTimeTrace(RunRef &run);

} // namespace Tessel
