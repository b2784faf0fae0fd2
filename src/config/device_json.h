// A device, and the list of all devices, as JSON. Keys stand in a fixed order, which is part of the format.
#pragma once

#include "records/device.h"

#include <string>
#include <string_view>

namespace Tessel {

DeviceState stateOf(const Device &device);

std::string stringifyJsonDevConfig(const DeviceConfig &config, const DeviceState &state);
// Of the device as it is now.
std::string stringifyJsonDevConfig(const Device &device);

// Fills the device from such a text. A key that is missing or wrong is logged and keeps its field. DeviceType
// isn't read, and an id that the device has stays.
void parseJsonDevConfig(Device &device, std::string_view text);

// The ids of all devices, in table order.
std::string stringifyDeviceIDs();

} // namespace Tessel
