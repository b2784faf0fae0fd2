// What a device has lost as JSON.
#pragma once

#include "threads/losses.h"

#include <string>

namespace Tessel {

// {"verdict", "losses", "recording": null or {"verdict", "losses"}}
std::string stringifyLosses(const DeviceLosses &losses);

} // namespace Tessel
