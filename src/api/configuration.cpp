#include "api/exports.h"
#include "config/device_ini.h"
#include "devices/locked_device.h"

#include <algorithm>
#include <cerrno>
#include <string>

using namespace Tessel;

namespace {

std::string idOf(const DeviceRef &target)
{
    return valueOf(target->device, &DeviceConfig::ID);
}

// The first line of a text, but at least 40 characters of it, as one line.
std::string previewOf(std::string_view text)
{
    std::string preview;
    for (const char c : text.substr(0, std::max<size_t>(text.find('\n'), 40)))
        preview += c == '\n' ? std::string("\\n") : std::string(1, c);
    return preview;
}

} // namespace

void setIniConfig(const char *text)
{
    guarded("setIniConfig", [&] {
        const DeviceRef target = currentDevice();
        const std::string preview = previewOf(textOf(text));
        logInf(LogCategory::Progress, "setIniConfig text \"{}\"", preview);
        if (const auto ini = parseIni(textOf(text)))
            applyIniConfig(target->device, target->context, *ini);
        else
            logLastError(fmt::format("Config: setIniConfig ({}..) : ", preview), EINVAL);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "(API setIniConfig '{}' '{}')", idOf(target),
                   textOf(text).substr(0, 20));
    });
}

bool loadIniConfig(const char *path)
{
    return guarded("loadIniConfig", false, [&] {
        const DeviceRef target = currentDevice();
        logInf(LogCategory::Progress, "loadIniConfig file \"{}\"", textOf(path));
        const auto bytes = readIniFile(textOf(path));
        const int error = bytes ? EINVAL : errno;
        const auto ini = bytes ? parseIni(*bytes) : std::nullopt;
        if (!ini) logLastError(fmt::format("Config: Load Ini-Config ({}) : ", textOf(path)), error);
        const bool answer = ini && applyIniConfig(target->device, target->context, *ini);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API loadIniConfig \"{}\" \"{}\"", idOf(target), textOf(path));
        return answer;
    });
}
