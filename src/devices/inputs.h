// The inputs. `row` is a row of the device; a row with Index -1 means all inputs, which the ZP and CD90
// families take. See sync.h for what all setters share.
#pragma once

#include "records/device.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Tessel {

// Calls `apply` with the row of an input; -1: with every row, up to the first that it says false to. The last
// answer; none if there is no such input.
template <class Apply>
std::optional<bool> forInputs(Device &device, int32_t channel, Apply apply)
{
    if (channel >= 0 && static_cast<size_t>(channel) < device.ChansCfg.size())
        return apply(device.ChansCfg[static_cast<size_t>(channel)]);
    if (channel != -1) return {};
    bool ok = false;
    for (ChannelRow &row : device.ChansCfg)
        if (ok = apply(row); !ok) break;
    return ok;
}

// 0 edge, 1 CFD. The levels of that trigger are then sent again.
bool SetInputTrgMode(Device &device, ChannelRow &row, int32_t mode);
bool SetInputEdgeTrig(Device &device, ChannelRow &row, int32_t level, int32_t edge, bool alreadyLocked = false);
bool SetInputCFD(Device &device, ChannelRow &row, int32_t discriminator, int32_t zeroCross,
                 bool alreadyLocked = false);
bool SetInputChannelOffset(Device &device, ChannelRow &row, int32_t offset);
bool SetInputChannelEnable(Device &device, ChannelRow &row, int32_t enable);
// As SetSyncDeadTime; an SV40 instrument has eight dead times, takes the nearest and remembers that one.
bool SetInputDeadTime(Device &device, ChannelRow &row, int32_t deadTime);
bool SetInputHysteresis(Device &device, int32_t code); // of all inputs

} // namespace Tessel
