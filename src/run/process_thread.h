// ProcessThread: between the reader and all consumers of a T2 or T3 run. Takes whole batches of record words,
// hands them on raw, decodes them into the first store of the chain, and holds the stream of a recorded file
// where a consumer has no room.
#pragma once

#include "records/refs.h"

namespace Tessel {

void ProcessThread(RunRef run);

} // namespace Tessel
