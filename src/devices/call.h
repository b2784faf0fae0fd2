// One call into an instrument library: lock, trace line, location text, call, check. A device operation has one
// branch per family, and each branch calls one of these with that family's operation.
#pragma once

#include "devices/libs/operation.h"
#include "devices/locked_device.h"
#include "devices/result.h"
#include "log/log.h"

#include <fmt/format.h>

#include <iterator>
#include <optional>
#include <string>
#include <type_traits>

namespace Tessel {

// What a setting answers where there is no library to ask: true on a file, which has nothing to set, and false
// on a remote device.
inline std::optional<bool> settingWithoutLibrary(const Device &device)
{
    if (device.DeviceType == DeviceType::File) return true;
    if (device.DeviceType == DeviceType::Remote) return false;
    return {};
}

// "ZP_SetSyncDiv @1010101"
std::string locationOf(const Device &device, const AnyOperation &operation);

// "ZP_SetSyncDiv: 0 4 @1010101": port, arguments, id. An argument that the library writes to is left out.
template <class... Args>
std::string traceText(const Device &device, const AnyOperation &operation, Args... args)
{
    std::string line = fmt::format("{}{}: {} ", operation.Library->Prefix, operation.Name, device.Index.load());
    [[maybe_unused]] auto append = [&line](auto argument) {
        if constexpr (!std::is_pointer_v<decltype(argument)>)
            fmt::format_to(std::back_inserter(line), "{} ", argument);
    };
    (append(args), ...);
    return line + "@" + device.ID;
}

// Posts that line.
template <class... Args>
void traceCall(const Device &device, const AnyOperation &operation, Args... args)
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "{}", traceText(device, operation, args...));
}

// The call, checked, without a trace line: for those whose line follows the answer, or depends on it.
template <class... Params>
bool callQuietly(LockedDevice &locked, const Operation<int32_t(int32_t, Params...)> &operation,
                 std::type_identity_t<Params>... args)
{
    return Kest_isOK(locked, operation(locked.device.Index, args...),
                     [&] { return locationOf(locked.device, operation); });
}

// The same with a location text that is fixed against the pattern.
template <class... Params>
bool callQuietlyAt(LockedDevice &locked, const Operation<int32_t(int32_t, Params...)> &operation,
                   std::string_view location, std::type_identity_t<Params>... args)
{
    return Kest_isOK(locked, operation(locked.device.Index, args...), [&] { return std::string(location); });
}

// Trace line, call, check.
template <class... Params>
bool call(LockedDevice &locked, const Operation<int32_t(int32_t, Params...)> &operation,
          std::type_identity_t<Params>... args)
{
    traceCall(locked.device, operation, args...);
    return callQuietly(locked, operation, args...);
}

template <class... Params>
bool callAt(LockedDevice &locked, const Operation<int32_t(int32_t, Params...)> &operation,
            std::string_view location, std::type_identity_t<Params>... args)
{
    traceCall(locked.device, operation, args...);
    return callQuietlyAt(locked, operation, location, args...);
}

} // namespace Tessel
