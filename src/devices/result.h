// The answers of the instrument libraries: the check that every one of them passes, the report of a failure,
// and what is made of numbers and texts that can't be trusted.
#pragma once

#include "devices/locked_device.h"
#include "log/log.h"
#include "records/device.h"

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace Tessel {

// The instrument is lost: the device is closed.
inline constexpr int32_t deviceLost = -36;

// Logs a result below zero: -1 and -2 as DEB if `quietTransient`, any other with the instrument's debug text.
void logResult(LockedDevice &locked, int32_t result, std::string location, bool quietTransient);
// The same, and closes a device that is lost.
void reportResult(LockedDevice &locked, int32_t result, std::string location, bool quietTransient);

// The check of every result of a library. True: zero or above. `location` makes the text that names the call.
template <class Location>
bool Kest_isOK(LockedDevice &locked, int32_t result, Location location, bool quietTransient = true)
{
    locked.device.Error = result;
    if (result < 0) reportResult(locked, result, location(), quietTransient);
    return result >= 0;
}

// Logs a failure of the device with what the instrument says of itself, and saves a dump beside the log where
// the family has one. The device's mutex isn't held.
void reportFailure(Device &device, LogCategory category, std::string_view message);

template <class... Args>
void reportDeviceError(Device &device, LogCategory category, fmt::format_string<Args...> format,
                       Args &&...args) noexcept
{
    try {
        reportFailure(device, category, recordText(format, args...));
    } catch (const std::exception &) { // no memory for more
        logErr(category, format, std::forward<Args>(args)...);
    }
}

// Logs why a run can't measure. Returns false.
inline bool refuse(const Device &device, std::string_view why)
{
    logErr(LogCategory::General, "Device: {} @{}", why, device.ID);
    return false;
}

// Posts "Config: <operation> is not supported for libType ..." and returns false.
bool notSupported(const Device &device, std::string_view operation);

// A number of a library, forced into a range. One that lies outside is logged.
int32_t trusted(const Device &device, int32_t value, int32_t least, int32_t most, std::string_view what);
// False, with a line in the log: the number of a library is none.
bool isFinite(const Device &device, double value, std::string_view what);

// Room for a text of a library. It ends with the room where the library writes no zero.
template <size_t size>
struct TextRoom
{
    char Bytes[size + 1] = {}; // the last one stays zero

    std::string text() const { return Bytes; }
};

} // namespace Tessel
