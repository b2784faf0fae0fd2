#include "devices/identity.h"

#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "devices/primitives.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <algorithm>
#include <limits>

namespace Tessel {

namespace {

bool readHardware(LockedDevice &locked, const decltype(CommonOperations::GetHardwareInfo) &operation)
{
    Device &device = locked.device;
    TextRoom<32> model, partNo, version;
    if (!callQuietly(locked, operation, model.Bytes, partNo.Bytes, version.Bytes)) return false;
    remember(locked, [&] {
        device.Model = visible(model.text());
        device.PartNo = visible(partNo.text());
        device.Version = visible(version.text());
    });
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetHardwareInfo: m:{} p:{} v:{} @{}", operation.Library->Prefix,
               device.Model, device.PartNo, device.Version, device.ID);
    return true;
}

} // namespace

bool GetHardwareInfo(Device &device)
{
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readHardware(locked, zp.GetHardwareInfo);
    case LibType::CD: return readHardware(locked, cd.GetHardwareInfo);
    case LibType::SV40: return readHardware(locked, sv40.GetHardwareInfo);
    case LibType::LM70: return readHardware(locked, lm70.GetHardwareInfo);
    case LibType::CD90: return readHardware(locked, cd90.GetHardwareInfo);
    default: return notSupported(device, "GetHardwareInfo");
    }
}

namespace {

// The line comes before the call, with a word that is still 0: hosts know it so.
bool readFeatures(LockedDevice &locked, const decltype(CommonOperations::GetFeatures) &operation,
                  uint32_t always = 0)
{
    Device &device = locked.device;
    int32_t bits = 0;
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetFeature: 0x{:X} @{}", operation.Library->Prefix, bits, device.ID);
    if (!callQuietly(locked, operation, &bits)) return false;
    remember(locked, [&] { device.Features = static_cast<uint32_t>(bits) | always; });
    if (LogLevel.Device) logDev(LogCategory::Progress, "Features: {}", featuresText(device.Features));
    return true;
}

} // namespace

bool GetFeatures(Device &device)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readFeatures(locked, zp.GetFeatures);
    case LibType::CD: return readFeatures(locked, cd.GetFeatures);
    case LibType::SV40: return readFeatures(locked, sv40.GetFeatures);
    case LibType::LM70: return readFeatures(locked, lm70.GetFeatures, Feature::TrigOut);
    case LibType::CD90: return readFeatures(locked, cd90.GetFeatures, Feature::TrigOut);
    default: return notSupported(device, "GetFeatures");
    }
}

namespace {

bool readBaseResolution(LockedDevice &locked, const decltype(CommonOperations::GetBaseResolution) &operation,
                        MeasContext &context)
{
    Device &device = locked.device;
    double ps = device.BaseResolution;
    int32_t binSteps = 0;
    if (!callQuietly(locked, operation, &ps, &binSteps)) return false;
    if (isFinite(device, ps, "as base resolution")) remember(locked, [&] { device.BaseResolution = ps; });
    binSteps = trusted(device, binSteps, 0, std::numeric_limits<int32_t>::max(), "as number of binning steps");
    remember(locked, [&] { device.MaxBinSteps = binSteps; });
    device.SyncPeriodPs = std::max(nearest<int64_t>(device.BaseResolution), int64_t{1});
    context.ResolutionPs = truncated<uint64_t>(device.BaseResolution);
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetBaseResolution: {} {} @{}", operation.Library->Prefix,
               device.BaseResolution, device.MaxBinSteps, device.ID);
    return true;
}

bool readResolution(LockedDevice &locked, const decltype(CommonOperations::GetResolution) &operation)
{
    Device &device = locked.device;
    double ps = device.Resolution;
    if (!callQuietly(locked, operation, &ps)) return false;
    if (isFinite(device, ps, "as resolution")) remember(locked, [&] { device.Resolution = ps; });
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetResolution: {} @{}", operation.Library->Prefix, device.Resolution,
               device.ID);
    return true;
}

} // namespace

bool GetBaseResolution(Device &device, MeasContext &context)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readBaseResolution(locked, zp.GetBaseResolution, context);
    case LibType::CD: return readBaseResolution(locked, cd.GetBaseResolution, context);
    case LibType::SV40: return readBaseResolution(locked, sv40.GetBaseResolution, context);
    case LibType::LM70: return readBaseResolution(locked, lm70.GetBaseResolution, context);
    case LibType::CD90: return readBaseResolution(locked, cd90.GetBaseResolution, context);
    default: return notSupported(device, "GetBaseResolution");
    }
}

bool GetResolution(Device &device)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readResolution(locked, zp.GetResolution);
    case LibType::CD: return readResolution(locked, cd.GetResolution);
    case LibType::SV40: return readResolution(locked, sv40.GetResolution);
    case LibType::LM70: return readResolution(locked, lm70.GetResolution);
    case LibType::CD90: return readResolution(locked, cd90.GetResolution);
    default: return notSupported(device, "GetResolution");
    }
}

namespace {

bool readInputs(LockedDevice &locked, const decltype(CommonOperations::GetNumOfInputChannels) &operation)
{
    Device &device = locked.device;
    int32_t count = 0;
    if (!callQuietly(locked, operation, &count)) return false;
    count = trusted(device, count, 0, mostInputs, "inputs");
    ChannelRow fresh;
    fresh.TrigMode = fixedTrigger(device).value_or(fresh.TrigMode);
    remember(locked, [&] {
        device.NumChans = count;
        device.ChansCfg.resize(static_cast<size_t>(count), fresh);
        for (int32_t i = 0; ChannelRow & row : device.ChansCfg) {
            row.Index = i++;
            row.Name = fmt::format("Channel {}", i);
        }
    });
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetNumOfInputChannels: {} @{}", operation.Library->Prefix,
               device.NumChans, device.ID);
    return true;
}

} // namespace

bool GetNumOfInputChannels(Device &device)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readInputs(locked, zp.GetNumOfInputChannels);
    case LibType::CD: return readInputs(locked, cd.GetNumOfInputChannels);
    case LibType::SV40: return readInputs(locked, sv40.GetNumOfInputChannels);
    case LibType::LM70: return readInputs(locked, lm70.GetNumOfInputChannels);
    case LibType::CD90: return readInputs(locked, cd90.GetNumOfInputChannels);
    default: return notSupported(device, "GetNumOfInputChannels");
    }
}

namespace {

void traceModule(const Device &device, const ModuleRow &module)
{
    if (!LogLevel.Device) return;
    // The CD family's line has the other one's name: hosts know it so.
    const std::string_view prefix = device.LibType == LibType::ZP ? "ZP_" : "CD90_";
    const auto version = static_cast<uint32_t>(module.VersionCode);
    logDev(LogCategory::Progress, "{}GetModuleInfo: {} {} {:02}{:02}_{:02}{:02} @{}", prefix, module.Index,
           module.ModelCode, version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF,
           device.ID);
}

using CountOfModules = Operation<int32_t(int32_t idx, int32_t *count)>;
using InfoOfModule = Operation<int32_t(int32_t idx, int32_t module, int32_t *modelCode, int32_t *versionCode)>;

// A module that doesn't answer keeps its row as it is.
bool readModules(LockedDevice &locked, const CountOfModules &countOf, const InfoOfModule &infoOf)
{
    Device &device = locked.device;
    int32_t count = 0;
    if (!callQuietly(locked, countOf, &count)) return false;
    count = trusted(device, count, 0, mostInputs, "modules");
    remember(locked, [&] {
        device.NumMods = count;
        device.ModsCfg.resize(static_cast<size_t>(count));
    });
    for (int32_t i = 0; i < device.NumMods; ++i) {
        ModuleRow read{.Index = i};
        if (!callQuietly(locked, infoOf, i, &read.ModelCode, &read.VersionCode)) continue;
        remember(locked, [&] { device.ModsCfg[static_cast<size_t>(i)] = read; });
        traceModule(device, read);
    }
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetNumOfModules: {} @{}", countOf.Library->Prefix, device.NumMods,
               device.ID);
    return true;
}

} // namespace

bool GetModules(Device &device)
{
    if (!isInstrument(device)) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readModules(locked, zp.GetNumOfModules, zp.GetModuleInfo);
    case LibType::CD: return readModules(locked, cd.GetNumOfModules, cd.GetModuleInfo);
    case LibType::CD90: return readModules(locked, cd90.GetNumOfModules, cd90.GetModuleInfo);
    default: return notSupported(device, "GetModules");
    }
}

} // namespace Tessel
