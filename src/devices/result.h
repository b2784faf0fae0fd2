// Log lines for failures of a device and for operations that it lacks.
#pragma once

#include "log/log.h"
#include "records/device.h"

#include <string_view>

namespace Tessel {

// Every failure of a device that is more than a warning is reported here.
template <class... Args>
void reportDeviceError(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    logErr(category, format, std::forward<Args>(args)...);
}

// Logs why a run can't measure. Returns false.
inline bool refuse(const Device &device, std::string_view why)
{
    logErr(LogCategory::General, "Device: {} @{}", why, device.ID);
    return false;
}

// Posts "Config: <operation> is not supported for libType ..." and returns false.
bool notSupported(const Device &device, std::string_view operation);

} // namespace Tessel
