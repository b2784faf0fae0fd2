// The finished byte: 0 from a run's start, 1 as its last write to the caller's memory.
#pragma once

#include "records/context.h"

#include <cstdint>

namespace Tessel {

// Nothing for a null pointer.
void writeFinished(uint8_t *finished, uint8_t value);
// The one place that tells a caller of a run's end. No lock is held.
void finish(MeasContext &context, Run &run);

} // namespace Tessel
