// ProcessThread: between the reader and the consumers of a T2 or T3 run. Takes whole batches of record words
// and hands them on raw, or decodes them into the first store of the chain. On a recorded file it holds while a
// consumer has no room.
#pragma once

#include "records/refs.h"
#include "stream/words.h"

namespace Tessel {

inline constexpr uint32_t loggedInvalidWords = 10; // of a run

// Logs those for which the run still has room. ProcessThread's; MeasureThread's before it hands over words.
void tellInvalid(Run &run, const InvalidWords &invalid);

void ProcessThread(RunRef run);

} // namespace Tessel
