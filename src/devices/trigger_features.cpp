#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/identity.h"
#include "devices/libs/cd90.h"
#include "devices/libs/loader.h"
#include "devices/primitives.h"

namespace Tessel {

namespace {

uint32_t featureOf(TrigMode mode)
{
    return mode == TrigMode::CFD ? TrigFeature::CFD : TrigFeature::Edge;
}

// Sets a trigger that can't be chosen and what is offered with it.
void setFixed(LockedDevice &locked, TrigMode &mode, uint32_t &feature)
{
    const auto fixed = fixedTrigger(locked.device);
    if (!fixed) return;
    remember(locked, [&] {
        mode = *fixed;
        feature = featureOf(*fixed);
    });
}

// "ZP_GetFeature: 0x1 @1010101", "SyncTrigFeatures: Edge  @1010101". `call`: the families' own word.
bool traceTriggers(const Device &device, std::string_view call, std::string_view input, uint32_t feature)
{
    if (!LogLevel.Device) return true;
    logDev(LogCategory::Progress, "{}{}: 0x{:X} @{}", libraryOf(device.LibType)->Prefix, call, feature,
           device.ID);
    logDev(LogCategory::Progress, "{}TrigFeatures: {} @{}", input, triggersText(feature), device.ID);
    return true;
}

} // namespace

bool GetSyncFeatures(Device &device)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    int32_t bits = 0;
    switch (device.LibType) {
    case LibType::ZP:
    case LibType::CD:
        setFixed(locked, device.SyncTrigMode, device.SyncTrigFeature);
        return traceTriggers(device, "GetFeature", "Sync", device.SyncTrigFeature);
    case LibType::SV40:
        setFixed(locked, device.SyncTrigMode, device.SyncTrigFeature);
        return traceTriggers(device, "GetSyncFeatures", "Sync", device.SyncTrigFeature);
    case LibType::LM70:
        remember(locked, [&] { device.SyncTrigFeature = TrigFeature::Both; });
        return traceTriggers(device, "GetSyncFeature", "Sync", device.SyncTrigFeature);
    case LibType::CD90:
        if (!callQuietly(locked, cd90.GetSyncFeatures, &bits)) return false;
        remember(locked, [&] { device.SyncTrigFeature = static_cast<uint32_t>(bits); });
        return traceTriggers(device, "GetSyncFeature", "Sync", device.SyncTrigFeature);
    default: return notSupported(device, "GetFeatures");
    }
}

bool GetInputFeatures(Device &device, ChannelRow &row)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    if (row.Index < 0) return false;
    int32_t bits = 0;
    switch (device.LibType) {
    case LibType::ZP:
    case LibType::CD:
        setFixed(locked, row.TrigMode, row.TrigFeature);
        return traceTriggers(device, "GetFeature", "Input", row.TrigFeature);
    case LibType::SV40:
        setFixed(locked, row.TrigMode, row.TrigFeature);
        return traceTriggers(device, "GetInputFeatures", "Input", row.TrigFeature);
    case LibType::LM70:
        remember(locked, [&] { row.TrigFeature = TrigFeature::Both; });
        return traceTriggers(device, "GetInputFeature", "Input", row.TrigFeature);
    case LibType::CD90:
        if (!callQuietly(locked, cd90.GetInputFeatures, row.Index, &bits)) return false;
        remember(locked, [&] { row.TrigFeature = static_cast<uint32_t>(bits); });
        return traceTriggers(device, "GetInputFeature", "Input", row.TrigFeature);
    default: return notSupported(device, "GetFeatures");
    }
}

} // namespace Tessel
