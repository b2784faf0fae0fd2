// ProcessThread: between the reader and the consumers of a T2 or T3 run. Takes whole batches of record words
// and hands them on raw, or decodes them into the first store of the chain. On a recorded file it holds while a
// consumer has no room.
#pragma once

#include "records/refs.h"

namespace Tessel {

void ProcessThread(RunRef run);

} // namespace Tessel
