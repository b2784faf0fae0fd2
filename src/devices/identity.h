// What an instrument says of itself: hardware, features, resolution, channels, modules. Each is read once, when
// the device is initialised. False, without effect, on a file.
#pragma once

#include "records/context.h"
#include "records/device.h"

namespace Tessel {

bool GetHardwareInfo(Device &device);
bool GetFeatures(Device &device);
bool GetBaseResolution(Device &device, MeasContext &context);
bool GetResolution(Device &device); // it follows the binning
bool GetNumOfInputChannels(Device &device);
bool GetModules(Device &device);
bool GetSyncFeatures(Device &device);
bool GetInputFeatures(Device &device, ChannelRow &row);

} // namespace Tessel
