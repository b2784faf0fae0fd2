// The sync input: divider, trigger, offset, dead time. Levels in mV, times in ps.
//
// For every `Set*` of sync, inputs, acquisition and markers: the value is limited to the family's range
// (devices/fields.cpp), with a warning, then sent, and remembered in the device if the library agreed. A
// recorded file answers true without effect, a remote device false. A feature that the device lacks gives false
// without a word, a family without the operation false with a warning.
#pragma once

#include "records/device.h"

#include <cstdint>

namespace Tessel {

bool SetSyncDiv(Device &device, int32_t divider);
// 0 edge, 1 CFD. The levels of that trigger are then sent again, so that the instrument has no stale ones.
bool SetSyncTrgMode(Device &device, int32_t mode);
bool SetSyncEdgeTrig(Device &device, int32_t level, int32_t edge);
bool SetSyncCFD(Device &device, int32_t discriminator, int32_t zeroCross);
bool SetSyncChannelOffset(Device &device, int32_t offset);
bool SetSyncChannelEnable(Device &device, int32_t enable);
// Below the family's shortest dead time it is switched off; what was asked for is remembered all the same.
bool SetSyncDeadTime(Device &device, int32_t deadTime);

} // namespace Tessel
