// The four marker inputs, in T2 and T3. See sync.h for what all setters share.
#pragma once

#include "records/device.h"

#include <array>
#include <cstdint>

namespace Tessel {

using FourMarkers = std::array<int32_t, 4>;

bool SetMarkerEdges(Device &device, FourMarkers edges);
bool SetMarkerEnable(Device &device, FourMarkers enables);
bool SetMarkerHoldoffTime(Device &device, int32_t time); // in units of the instrument

} // namespace Tessel
