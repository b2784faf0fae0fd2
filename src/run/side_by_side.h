// The part of a run in which a recorded file is counted side by side.
#pragma once

#include "devices/source.h"
#include "records/refs.h"

namespace Tessel {

// On MeasureThread, after the run has begun and before the first read. Counts as much of the file as can be
// counted side by side, which may be nothing, and moves the source on; the rest goes the ordinary way.
void countSideBySide(RunRef &ref, RecordSource &source);

} // namespace Tessel
