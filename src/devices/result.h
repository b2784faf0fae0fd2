// Failures of a device and operations that it lacks, as the log tells them.
#pragma once

#include "log/log.h"
#include "records/device.h"

#include <string_view>

namespace Tessel {

// Every failure of a device that isn't a mere warning is reported here.
template <class... Args>
void reportDeviceError(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    logErr(category, format, std::forward<Args>(args)...);
}

// A run that can't be made, for what reason. Returns false.
inline bool refuse(const Device &device, std::string_view why)
{
    logErr(LogCategory::General, "Device: {} @{}", why, device.ID);
    return false;
}

// Posts "Config: <operation> is not supported for libType ..." and returns false.
bool notSupported(const Device &device, std::string_view operation);

} // namespace Tessel
