#include "devices/result.h"

#include "devices/debug_info.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/loader.h"
#include "devices/lifecycle.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <cmath>

namespace Tessel {

namespace {

std::string errorText(const CommonOperations &library, int32_t code)
{
    TextRoom<64> text;
    library.GetErrorString(text.Bytes, code);
    return text.text();
}

void logWithDebugInfo(LockedDevice &locked, LogCategory category, std::string_view message)
{
    const std::string info = GetDebugInfo(locked);
    if (info.empty())
        logErr(category, "{}", withLines(message));
    else
        logErr(category, "{}\nDebug Info:\n{}", withLines(message), withLines(info));
    if (hasDebugDump(locked.device)) SaveDebugDump(locked, logFolder());
}

} // namespace

void logResult(LockedDevice &locked, int32_t result, std::string location, bool quietTransient)
{
    const Device &device = locked.device;
    const CommonOperations *library = libraryOf(device.LibType);
    if (!library) {
        if (device.IsOpen)
            logErr(LogCategory::Device, "Device: Kest_isOK is not supported for libType {} @{}",
                   libTypeText(device.LibType), device.ID);
        else
            logErr(LogCategory::Device, "Device: {} is closed!", device.ID);
        return;
    }
    if (!location.empty()) location = "in " + location + " ";
    const std::string message = recordText("{} error {}({}): {} @{}", familyOf(device.LibType).Library,
                                           location, result, errorText(*library, result), device.ID);
    if (quietTransient && (result == -1 || result == -2))
        logDeb(LogCategory::Progress, "{}", message);
    else
        logWithDebugInfo(locked, LogCategory::General, "Device: " + message);
}

void reportResult(LockedDevice &locked, int32_t result, std::string location, bool quietTransient)
{
    logResult(locked, result, std::move(location), quietTransient);
    if (result == deviceLost) closeLost(locked);
}

void reportFailure(Device &device, LogCategory category, std::string_view message)
{
    LockedDevice locked(device);
    logWithDebugInfo(locked, category, message);
}

bool notSupported(const Device &device, std::string_view operation)
{
    logWrn(LogCategory::General, "Config: {} is not supported for libType {} @{}", operation,
           libTypeText(device.LibType), device.ID);
    return false;
}

int32_t trusted(const Device &device, int32_t value, int32_t least, int32_t most, std::string_view what)
{
    const int32_t taken = std::clamp(value, least, most);
    if (taken != value)
        logWrn(LogCategory::Device, "Device: The instrument gives {} {}, taken as {} @{}", value, what, taken,
               device.ID);
    return taken;
}

bool isFinite(const Device &device, double value, std::string_view what)
{
    if (std::isfinite(value)) return true;
    logWrn(LogCategory::Device, "Device: The instrument gives {} {}, left out @{}", value, what, device.ID);
    return false;
}

} // namespace Tessel
