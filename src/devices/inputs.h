// The inputs. `row` is one of the device's, while its mutex is held, or the caller's own; a row with Index -1
// means all inputs, which the ZP and CD90 families take. See sync.h for what all setters share.
#pragma once

#include "devices/locked_device.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Tessel {

// Calls `apply` with the row of an input, under the device's mutex. None: there is no such input.
template <class Apply>
std::optional<bool> forInput(Device &device, size_t input, Apply apply)
{
    LockedDevice locked(device);
    if (input >= device.ChansCfg.size()) return {};
    return apply(device.ChansCfg[input]);
}

// The same; -1: with every row, up to the first that it says false to, and the last answer. Between two rows
// others have their turn.
template <class Apply>
std::optional<bool> forInputs(Device &device, int32_t channel, Apply apply)
{
    if (channel >= 0) return forInput(device, static_cast<size_t>(channel), apply);
    if (channel != -1) return {};
    bool ok = false;
    for (size_t i = 0; const auto answer = forInput(device, i, apply); ++i)
        if (ok = *answer; !ok) break;
    return ok;
}

// 0 edge, 1 CFD. The levels of that trigger are then sent again.
bool SetInputTrgMode(Device &device, ChannelRow &row, int32_t mode);
bool SetInputEdgeTrig(Device &device, ChannelRow &row, int32_t level, int32_t edge);
bool SetInputCFD(Device &device, ChannelRow &row, int32_t discriminator, int32_t zeroCross);
bool SetInputChannelOffset(Device &device, ChannelRow &row, int32_t offset);
bool SetInputChannelEnable(Device &device, ChannelRow &row, int32_t enable);
// As SetSyncDeadTime; an SV40 instrument has eight dead times, takes the nearest and remembers that one.
bool SetInputDeadTime(Device &device, ChannelRow &row, int32_t deadTime);
bool SetInputHysteresis(Device &device, int32_t code); // of all inputs

} // namespace Tessel
