// One pass of the loop that reads records in a T2 or T3 run.
#pragma once

#include "pipeline/stall_watch.h"

namespace Tessel {

// True: the run has ended, nothing more is to be read.
bool passTttrLoop(RunRef &run, StallWatch &watch);

} // namespace Tessel
