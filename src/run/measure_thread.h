// `MeasureThread`: a run from its start to its finished byte. It is the only thread that reads the source, and
// nobody joins it.
#pragma once

#include "records/refs.h"

namespace Tessel {

void MeasureThread(RunRef run);

} // namespace Tessel
