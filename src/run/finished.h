// The finished byte: 0 from a run's start, then 1 as the run's last write to the caller's memory.
#pragma once

#include "records/context.h"

#include <cstdint>

namespace Tessel {

// Does nothing for a null pointer.
void writeFinished(uint8_t *finished, uint8_t value);
// The one place where a caller learns that the run has ended. No lock is held.
void finish(MeasContext &context, Run &run);

} // namespace Tessel
