// What a run asks of its device: start, stop, flags, rates, times, records. Every operation looks at
// `DeviceType` first. A recorded file answers without effect; no instrument is bound, so every other device
// lacks the operation.
#pragma once

#include "devices/device.h"
#include "pipeline/meas_context.h"

#include <cstdint>
#include <optional>

namespace Tessel {

inline bool isFile(const Device &device)
{
    return device.DeviceType == DeviceType::File;
}

bool SetMeasControl(Device &device, int32_t control, int32_t startEdge, int32_t stopEdge);
bool StartMeasure(Device &device, int32_t acqTimeMs);
bool StopMeasure(Device &device);
bool clearHistMem(Device &device);

// Bits that the device reports of its run.
bool getFlags(Device &device, int32_t &flags);

// 1 once the acquisition timer has run out. A file has no timer: always 0.
bool getCtcStatus(Device &device, int32_t &status);

bool getSyncRate(Device &device, MeasContext &context, int32_t &rate);
bool getElapsedMeasTime(Device &device, double &elapsed);

// False, without effect, on a file.
bool readCountRates(Device &device, MeasContext &context);

// Reads records behind the ones that wait in the run's ReadBuffer; the caller holds ReadGate and has room for
// a chunk. `count`: words read. Sets StopRequested at the end of a file.
bool readFifo(Device &device, MeasContext &context, Run &run, uint64_t &count);

// The most that one readFifo takes.
inline constexpr uint64_t chunkWords = 1048576;

} // namespace Tessel
