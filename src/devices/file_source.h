// A recorded file as the source of a run's words, as fast as they are taken.
#pragma once

#include "devices/source.h"

namespace Tessel {

// From the first record on. Only regular files open.
void openFile(RecordSource &source, const Device &device);

// One read, see readSource.
Reading readFile(RecordSource &source, const Device &device, uint32_t *room);

} // namespace Tessel
