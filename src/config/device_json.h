// A device, and the list of all devices, as JSON. Keys stand in a fixed order, which is part of the format.
#pragma once

#include "records/device.h"

#include <string>

namespace Tessel {

DeviceState stateOf(const Device &device);

std::string stringifyJsonDevConfig(const DeviceConfig &config, const DeviceState &state);

// The ids of all devices, in table order.
std::string stringifyDeviceIDs();

} // namespace Tessel
