// The caller's side of a run: start, stop, sequences, and the handshake of new data.
#pragma once

#include "measurements/measurement_steps.h"
#include "records/refs.h"

#include <cstdint>

namespace Tessel {

// Ends a live run, starts a new one, and waits for its end where the request says so. What it throws, it throws
// before a run has begun; the caller then writes the finished byte.
void startMeasurement(const DeviceRef &target, const RunRequest &request, const DeviceLookUp &devices);

// What all measurements ask for alike. A run without an acquisition time on an instrument is never waited for.
RunRequest requestOf(MeasKind kind, const Device &device, uint32_t acqTimeMs, uint8_t waitFinished,
                     uint8_t save, uint8_t *finished);

// The array that a run of this kind would ask of the caller by the device's present parameters; all 0: none, or
// there is no such kind.
ResultShape resultShape(const DeviceRef &target, MeasKind kind, const DeviceLookUp &devices);

void stopMeasurement(MeasContext &context);
void setSequence(MeasContext &context, int32_t mode, bool wait, double value);
void confirmNewData(MeasContext &context);

// Blocks until a step of a waiting sequence is published (true), or the run has ended or doesn't wait.
bool awaitNewData(MeasContext &context);

} // namespace Tessel
