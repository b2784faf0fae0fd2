// Rates and times of a device: what it counts per second, its sync period, how long a run has lasted and when
// it began. A recorded file answers with what it gave.
#pragma once

#include "records/context.h"
#include "records/device.h"

#include <cstdint>

namespace Tessel {

bool getElapsedMeasTime(Device &device, double &elapsed);
// Into the description. Of the instruments ZP and CD90 alone have it.
bool GetStartTime(Device &device, MeasContext &context);
bool getSyncPeriod(Device &device, MeasContext &context, double &seconds);
bool getSyncRate(Device &device, MeasContext &context, int32_t &rate);
// Of the sync and all inputs, into the context. False, without effect, on a file.
bool readCountRates(Device &device, MeasContext &context);

} // namespace Tessel
