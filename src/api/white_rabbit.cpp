#include "devices/white_rabbit.h"

#include "api/exports.h"
#include "log/text.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstring>

using namespace Tessel;

namespace {

using SfpArrays = std::array<int32_t *, 3>; // four elements each; null: all 0

// The text has at most `sfpText` bytes, and the host's room one more.
constexpr size_t sfpText = 80;

SfpData sfpDataOf(const char *text, const SfpArrays &arrays)
{
    SfpData data;
    if (text) data.Text.assign(text, strnlen(text, sfpText));
    for (size_t i = 0; i < arrays.size(); ++i)
        if (arrays[i]) std::copy_n(arrays[i], 4, data.Numbers[i].begin());
    return data;
}

void handOut(const SfpData &data, char *text, const SfpArrays &arrays)
{
    copyText(data.Text, text);
    for (size_t i = 0; i < arrays.size(); ++i)
        if (arrays[i]) std::ranges::copy(data.Numbers[i], arrays[i]);
}

} // namespace

bool WRabbitGetMAC(const char16_t *id, char *mac)
{
    return guarded("WRabbitGetMAC", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API WRabbitGetMAC");
        std::string text;
        const bool ok = Tessel::WRabbitGetMAC(target->device, text);
        copyText(text, mac);
        return ok;
    });
}

bool WRabbitSetMAC(const char16_t *id, const char *mac)
{
    return guarded("WRabbitSetMAC", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API WRabbitSetMAC {} @{}", visible(textOf(mac)), target->device.ID);
        return Tessel::WRabbitSetMAC(target->device, textOf(mac));
    });
}

bool WRabbitGetInitScript(const char16_t *id, char *script)
{
    return guarded("WRabbitGetInitScript", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API WRabbitGetInitScript @{}", target->device.ID);
        std::string text;
        const bool ok = Tessel::WRabbitGetInitScript(target->device, text);
        copyText(text, script);
        return ok;
    });
}

bool WRabbitSetInitScript(const char16_t *id, const char *script)
{
    return guarded("WRabbitSetInitScript", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API WRabbitSetInitScript @{}", target->device.ID);
        return Tessel::WRabbitSetInitScript(target->device, std::string(textOf(script)));
    });
}

bool WRabbitSetSFPData(const char16_t *id, const char *text, int32_t *first, int32_t *second, int32_t *third)
{
    return guarded("WRabbitSetSFPData", false, [&] {
        const DeviceRef target = deviceOf(id);
        SfpData data = sfpDataOf(text, {first, second, third});
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API WRabbitSetSFPData {} {} @{}", visible(data.Text),
                   fmt::join(data.Numbers, " "), target->device.ID);
        return Tessel::WRabbitSetSFPData(target->device, data);
    });
}

bool WRabbitGetSFPData(const char16_t *id, char *text, int32_t *first, int32_t *second, int32_t *third)
{
    return guarded("WRabbitGetSFPData", false, [&] {
        const DeviceRef target = deviceOf(id);
        const SfpArrays arrays = {first, second, third};
        SfpData data = sfpDataOf(text, arrays);
        if (LogLevel.Api) // it names the other export: hosts know it so
            logInf(LogCategory::Progress, "API WRabbitSetSFPData {} @{}", visible(data.Text),
                   target->device.ID);
        const bool ok = Tessel::WRabbitGetSFPData(target->device, data);
        handOut(data, text, arrays);
        return ok;
    });
}

bool WRabbitInitLink(const char16_t *id, int32_t on)
{
    return guarded("WRabbitInitLink", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api) // it names another export: hosts know it so
            logInf(LogCategory::Progress, "API WRabbitSetInitScript {} @{}", on, target->device.ID);
        return Tessel::WRabbitInitLink(target->device, on);
    });
}

bool WRabbitSetMode(const char16_t *id, int32_t first, int32_t second, int32_t third)
{
    return guarded("WRabbitSetMode", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API WRabbitSetMode {} {} {} @{}", first, second, third,
                   target->device.ID);
        return Tessel::WRabbitSetMode(target->device, first, second, third);
    });
}

bool WRabbitSetTime(const char16_t *id, uint64_t seconds)
{
    return guarded("WRabbitSetTime", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API WRabbitSetTime {} @{}", seconds, target->device.ID);
        return Tessel::WRabbitSetTime(target->device, seconds);
    });
}

bool WRabbitGetTime(const char16_t *id, uint64_t *seconds, uint32_t *subSecond)
{
    return guarded("WRabbitGetTime", false, [&] {
        uint64_t unwantedSeconds = 0;
        uint32_t unwantedPart = 0;
        return Tessel::WRabbitGetTime(deviceOf(id)->device, seconds ? *seconds : unwantedSeconds,
                                      subSecond ? *subSecond : unwantedPart);
    });
}

bool WRabbitGetStatus(const char16_t *id, int32_t *status)
{
    return guarded("WRabbitGetStatus", false, [&] {
        int32_t unwanted = 0;
        return Tessel::WRabbitGetStatus(deviceOf(id)->device, status ? *status : unwanted);
    });
}

bool WRabbitGetTermOutput(const char16_t *id, char *text)
{
    return guarded("WRabbitGetTermOutput", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API WRabbitGetTermOutput @{}", target->device.ID);
        std::string output;
        const bool ok = Tessel::WRabbitGetTermOutput(target->device, output);
        copyText(output, text);
        return ok;
    });
}
