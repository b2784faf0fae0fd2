#include "devices/white_rabbit.h"

#include "devices/call.h"
#include "devices/libs/all.h"
#include "log/text.h"

#include <fmt/ranges.h>

#include <array>
#include <charconv>
#include <stdexcept>

namespace Tessel {

namespace {

constexpr size_t macBytes = 6, sfpBytes = 80;
// A host gives as much room as a library is given, and needs one byte of it for the zero.
constexpr int32_t longTextRoom = 65536, longestText = longTextRoom - 1;

using Mac = std::array<uint8_t, macBytes>;
using LongText = TextRoom<longTextRoom>; // scripts and terminal

uint8_t hexByte(std::string_view digits)
{
    uint8_t byte = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw std::invalid_argument(fmt::format("\"{}\" is no hexadecimal number", visible(digits)));
    return byte;
}

// The digits without hyphens, as many as six bytes have.
std::string macDigits(std::string_view mac)
{
    std::string digits(mac);
    std::erase(digits, '-');
    digits.resize(2 * macBytes);
    return digits;
}

Mac macOf(const Device &device, const std::string &digits)
{
    Mac bytes{};
    for (size_t i = 0; i < macBytes; ++i) {
        const std::string_view pair = std::string_view(digits).substr(2 * i, 2);
        bytes[i] = hexByte(pair);
        if (LogLevel.Device) logDev(LogCategory::Progress, "WRSetMAC: {} {} @{}", pair, bytes[i], device.ID);
    }
    return bytes;
}

// The trace shows what the host gave, where the call has other arguments.
template <class Value, class... Params>
bool callShowing(LockedDevice &locked, const Value &shown,
                 const Operation<int32_t(int32_t, Params...)> &operation, std::type_identity_t<Params>... args)
{
    traceCall(locked.device, operation, shown);
    return callQuietly(locked, operation, args...);
}

// The text is read only where there is an operation that takes it.
bool sendMac(LockedDevice &locked, const decltype(ZPLibrary::WRabbitSetMAC) &operation, std::string_view mac)
{
    const std::string digits = macDigits(mac);
    Mac bytes = macOf(locked.device, digits);
    return callShowing(locked, digits, operation, bytes.data());
}

} // namespace

bool WRabbitGetMAC(Device &device, std::string &mac)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    Mac bytes{};
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.WRabbitGetMAC, bytes.data()); break;
    case LibType::CD90: ok = call(locked, cd90.WRabbitGetMAC, bytes.data()); break;
    default: return notSupported(device, "WRabbitGetMAC");
    }
    if (ok) mac = fmt::format("{:02x}", fmt::join(bytes, "-"));
    return ok;
}

bool WRabbitSetMAC(Device &device, std::string_view mac)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return sendMac(locked, zp.WRabbitSetMAC, mac);
    case LibType::CD90: return sendMac(locked, cd90.WRabbitSetMAC, mac);
    default: return notSupported(device, "WRabbitSetMAC");
    }
}

bool WRabbitGetInitScript(Device &device, std::string &script)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LongText text;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.WRabbitGetInitScript, text.Bytes); break;
    case LibType::CD90: ok = call(locked, cd90.WRabbitGetInitScript, text.Bytes); break;
    default: return notSupported(device, "WRabbitGetInitScript");
    }
    if (ok) script = text.text().substr(0, longestText);
    return ok;
}

bool WRabbitSetInitScript(Device &device, const std::string &script)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    const std::string shown = visible(script);
    switch (device.LibType) {
    case LibType::ZP: return callShowing(locked, shown, zp.WRabbitSetInitScript, script.c_str());
    case LibType::CD90: return callShowing(locked, shown, cd90.WRabbitSetInitScript, script.c_str());
    default: return notSupported(device, "WRabbitSetInitScript");
    }
}

bool WRabbitSetSFPData(Device &device, SfpData &data)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    TextRoom<sfpBytes> text;
    data.Text.copy(text.Bytes, sfpBytes);
    auto [first, second, third] = data.Numbers;
    const std::string shown = fmt::format("{} {}", visible(text.text()), fmt::join(data.Numbers, " "));
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP:
        ok = callShowing(locked, shown, zp.WRabbitSetSFPData, text.Bytes, first.data(), second.data(),
                         third.data());
        break;
    case LibType::CD90:
        ok = callShowing(locked, shown, cd90.WRabbitSetSFPData, text.Bytes, first.data(), second.data(),
                         third.data());
        break;
    default: return notSupported(device, "WRabbitSetSFPData");
    }
    if (ok) data = {text.text(), {first, second, third}};
    return ok;
}

bool WRabbitGetSFPData(Device &device, SfpData &data)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    for (auto &numbers : data.Numbers)
        numbers[3] = 0; // three are taken of the host, four given: hosts know it so
    return WRabbitSetSFPData(device, data);
}

bool WRabbitInitLink(Device &device, int32_t on)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return call(locked, zp.WRabbitInitLink, on);
    case LibType::CD90: return call(locked, cd90.WRabbitInitLink, on);
    default: return notSupported(device, "WRabbitInitLink");
    }
}

bool WRabbitSetMode(Device &device, int32_t first, int32_t second, int32_t third)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return call(locked, zp.WRabbitSetMode, first, second, third);
    case LibType::CD90: return call(locked, cd90.WRabbitSetMode, first, second, third);
    default: return notSupported(device, "WRabbitSetMode");
    }
}

bool WRabbitSetTime(Device &device, uint64_t seconds)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    const auto high = static_cast<uint32_t>(seconds >> 32), low = static_cast<uint32_t>(seconds);
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return callShowing(locked, seconds, zp.WRabbitSetTime, high, low);
    case LibType::CD90: return callShowing(locked, seconds, cd90.WRabbitSetTime, high, low);
    default: return notSupported(device, "WRabbitSetTime");
    }
}

bool WRabbitGetTime(Device &device, uint64_t &seconds, uint32_t &subSecond)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    uint32_t high = 0, low = 0, part = 0;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.WRabbitGetTime, &high, &low, &part); break;
    case LibType::CD90: ok = call(locked, cd90.WRabbitGetTime, &high, &low, &part); break;
    default: return notSupported(device, "WRabbitGetTime");
    }
    if (!ok) return false;
    seconds = uint64_t{high} << 32 | low;
    subSecond = part;
    return true;
}

bool WRabbitGetStatus(Device &device, int32_t &status)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    int32_t word = 0;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.WRabbitGetStatus, &word); break;
    case LibType::CD90: ok = call(locked, cd90.WRabbitGetStatus, &word); break;
    default: return notSupported(device, "WRabbitGetStatus");
    }
    if (ok) status = word;
    return ok;
}

bool WRabbitGetTermOutput(Device &device, std::string &text)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LongText bytes;
    int32_t count = 0;
    LockedDevice locked(device);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.WRabbitGetTermOutput, bytes.Bytes, &count); break;
    case LibType::CD90: ok = call(locked, cd90.WRabbitGetTermOutput, bytes.Bytes, &count); break;
    default: return notSupported(device, "WRabbitGetTermOutput");
    }
    if (!ok) return false;
    count = trusted(device, count, 0, longestText, "as bytes of terminal output");
    text.assign(bytes.Bytes, static_cast<size_t>(count));
    return true;
}

} // namespace Tessel
