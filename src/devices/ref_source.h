// The reference clock source as an instrument of the device's family takes it.
#pragma once

#include "devices/device.h"

namespace Tessel {

// A source that the family doesn't know is logged and gives 0.
int32_t refSourceCode(const Device &device);

} // namespace Tessel
