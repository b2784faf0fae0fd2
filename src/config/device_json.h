// A device, and the list of all devices, as JSON. Keys stand in a fixed order, which is part of the format.
#pragma once

#include "devices/device.h"

#include <string>

namespace Tessel {

std::string stringifyJsonDevConfig(const Device &device);

// The ids of all devices, in table order.
std::string stringifyDeviceIDs();

} // namespace Tessel
