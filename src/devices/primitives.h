// What a run asks of its device: start, stop, flags, rates, times. Every operation looks at
// `DeviceType` first. A recorded file answers without effect. No instrument is bound yet, so any other device
// lacks the operation.
#pragma once

#include "records/context.h"
#include "records/device.h"

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

} // namespace Tessel
