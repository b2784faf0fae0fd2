// `MeasureThread`: a run from its start to its finished byte. It is the only thread that reads the source.
// Nobody joins it: who has to know that it is done waits for the phase Over.
#pragma once

#include "records/refs.h"

namespace Tessel {

void MeasureThread(RunRef run);

} // namespace Tessel
