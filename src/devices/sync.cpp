#include "devices/sync.h"

#include "devices/call.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "devices/limits.h"
#include "devices/setting.h"

namespace Tessel {

bool SetSyncDiv(Device &device, int32_t divider)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::SyncDiv, divider);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetSyncDiv, divider); break;
    case LibType::CD: ok = call(locked, cd.SetSyncDiv, divider); break;
    case LibType::SV40: ok = call(locked, sv40.SetSyncDiv, divider); break;
    case LibType::LM70: ok = call(locked, lm70.SetSyncDiv, divider); break;
    case LibType::CD90: ok = call(locked, cd90.SetSyncDiv, divider); break;
    default: return notSupported(device, "SetSyncDiv");
    }
    if (ok) remember(locked, [&] { device.SyncDiv = divider; });
    return ok;
}

bool SetSyncTrgMode(Device &device, int32_t mode)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::LM70: ok = call(locked, lm70.SetSyncTrgMode, mode); break;
    case LibType::CD90: ok = call(locked, cd90.SetSyncTrgMode, mode); break;
    default: return notSupported(device, "SetSyncTrgMode");
    }
    if (!ok) return false;
    remember(locked, [&] { device.SyncTrigMode = static_cast<TrigMode>(mode); });
    switch (device.SyncTrigMode) {
    case TrigMode::Edge: return SetSyncEdgeTrig(device, device.SyncTrigLvl, device.SyncTrigEdge);
    case TrigMode::CFD: return SetSyncCFD(device, device.SyncDiscrLvl, device.SyncZeroxLvL);
    }
    return false; // an unknown mode is remembered all the same
}

bool SetSyncEdgeTrig(Device &device, int32_t level, int32_t edge)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::SyncTrigLvl, level);
    // The location of two families has the arguments and no id: hosts know it so.
    const auto location = [&](std::string_view operation) {
        return fmt::format("{}: {} {} {}", operation, device.Index.load(), level, edge);
    };
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetSyncEdgeTrg, level, edge); break;
    case LibType::SV40: ok = call(locked, sv40.SetSyncEdgeTrg, level, edge); break;
    case LibType::LM70:
        ok = callAt(locked, lm70.SetSyncEdgeTrg, location("LM70_SetSyncEdgeTrg"), level, edge);
        break;
    case LibType::CD90:
        ok = callAt(locked, cd90.SetSyncEdgeTrg, location("CD90_SetSyncEdgeTrg"), level, edge);
        break;
    default: return notSupported(device, "SetSyncEdgeTrg");
    }
    if (ok)
        remember(locked, [&] {
            device.SyncTrigLvl = level;
            device.SyncTrigEdge = edge;
        });
    return ok;
}

bool SetSyncCFD(Device &device, int32_t discriminator, int32_t zeroCross)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::SyncDiscrLvl, discriminator);
    checkLimits(device, &DeviceConfig::SyncZeroxLvL, zeroCross);
    // The location of three families has the arguments and no id: hosts know it so.
    const auto location = [&](std::string_view operation) {
        return fmt::format("{}: {} {} {}", operation, device.Index.load(), discriminator, zeroCross);
    };
    bool ok = false;
    switch (device.LibType) {
    case LibType::CD: // The location names the edge call: hosts know it so.
        ok = callAt(locked, cd.SetSyncCFD, fmt::format("CD_SetSyncEdgeTrg @{}", device.ID), discriminator,
                    zeroCross);
        break;
    case LibType::SV40:
        if (fixedTrigger(device) != TrigMode::CFD) return notSupportedByModel(device, "SetSyncCFD");
        ok = callAt(locked, sv40.SetSyncCFD, location("SV40_SetSyncCFD"), discriminator, zeroCross);
        break;
    case LibType::LM70:
        ok = callAt(locked, lm70.SetSyncCFD, location("LM70_SetSyncCFD"), discriminator, zeroCross);
        break;
    case LibType::CD90:
        ok = callAt(locked, cd90.SetSyncCFD, location("CD90_SetSyncCFD"), discriminator, zeroCross);
        break;
    default: return notSupported(device, "SetSyncCFD");
    }
    if (ok)
        remember(locked, [&] {
            device.SyncDiscrLvl = discriminator;
            device.SyncZeroxLvL = zeroCross;
        });
    return ok;
}

bool SetSyncChannelOffset(Device &device, int32_t offset)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::SyncChannelOffset, offset);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetSyncChannelOffset, offset); break;
    case LibType::CD: ok = call(locked, cd.SetSyncChannelOffset, offset); break;
    case LibType::SV40: ok = call(locked, sv40.SetSyncChannelOffset, offset); break;
    case LibType::LM70: ok = call(locked, lm70.SetSyncChannelOffset, offset); break;
    case LibType::CD90: ok = call(locked, cd90.SetSyncChannelOffset, offset); break;
    default: return notSupported(device, "SetSyncChannelOffset");
    }
    if (ok) remember(locked, [&] { device.SyncChannelOffset = offset; });
    return ok;
}

bool SetSyncChannelEnable(Device &device, int32_t enable)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetSyncChannelEnable, enable); break;
    case LibType::LM70: ok = call(locked, lm70.SetSyncChannelEnable, enable); break;
    case LibType::CD90: ok = call(locked, cd90.SetSyncChannelEnable, enable); break;
    default: return notSupported(device, "SetSyncChannelEnable");
    }
    if (ok) remember(locked, [&] { device.SyncChannelEnable = enable; });
    return ok;
}

bool SetSyncDeadTime(Device &device, int32_t deadTime)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    const auto [on, sent] = deadTimeSent(device, &DeviceConfig::SyncDeadTime, deadTime);
    const bool isProgrammable = device.Features & Feature::ProgTd;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = isProgrammable && call(locked, zp.SetSyncDeadTime, on, sent); break;
    case LibType::LM70: ok = isProgrammable && call(locked, lm70.SetSyncDeadTime, on, sent); break;
    case LibType::CD90: ok = isProgrammable && call(locked, cd90.SetSyncDeadTime, on, sent); break;
    default: return notSupported(device, "SetSyncDeadTime");
    }
    if (ok)
        remember(locked, [&, switchedOn = on] {
            device.SyncDeadTimeOn = switchedOn;
            device.SyncDeadTime = static_cast<uint32_t>(deadTime);
        });
    return ok;
}

} // namespace Tessel
