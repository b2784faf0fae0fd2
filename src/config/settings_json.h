// What can be set on a device, and the instrument libraries, as JSON for whoever shows them to people.
#pragma once

#include "records/device_config.h"

#include <string>

namespace Tessel {

// The family, the features by name, and each setting that the device has, with unit, range and value.
std::string stringifySettings(const DeviceConfig &config);

// How the last look for each family's library ended.
std::string stringifyLibraries();

} // namespace Tessel
