// MeasureThread: owns one run of one device from start to end, in a fixed order of steps.
#pragma once

#include "measurements/run_ref.h"

namespace Tessel {

void MeasureThread(RunRef run);

// Writes the caller's finished byte; null: there is none.
void writeFinished(uint8_t *finished, uint8_t value);
void writeFinished(Run &run, uint8_t value);

} // namespace Tessel
