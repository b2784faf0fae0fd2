// What a recorded file answers in place of an instrument: its rate, and its records at the pace of the
// pipeline. The input file belongs to MeasureThread for the length of a run.
#pragma once

#include "devices/device.h"
#include "pipeline/meas_context.h"

#include <cstdint>

namespace Tessel {

// The stored sync rate, rounded.
int32_t fileSyncRate(const MeasContext &context);

// Opens the input of a run and sets ReadPos and FileEnd. Only regular files open.
bool openFileInput(Device &device, Run &run);
void closeFileInput(Run &run);

// One paced read, see readFifo. A file isn't read while more than a chunk waits in the buffer.
bool readFile(Device &device, MeasContext &context, Run &run, uint64_t &count);

} // namespace Tessel
