#include "api/exports.h"
#include "log/text.h"

#include <array>

using namespace Tessel;

namespace {

constexpr std::array switches = {&LogSwitches::Api, &LogSwitches::Config, &LogSwitches::Device,
                                 &LogSwitches::DataFile, &LogSwitches::Manipulators};

} // namespace

void logError(const char *text)
{
    guarded("logError", [&] { logErr(LogCategory::General, "Ext.-Error: {}", textOf(text)); });
}

int32_t tessel_lastError(char *text, uint64_t capacity)
{
    const std::string_view error = lastError(); // not a call that forgets it
    if (capacity > 0) copyText(cutTo(error, capacity - 1), text);
    return static_cast<int32_t>(error.size());
}

void logExternal(const char *text)
{
    guarded("logExternal", [&] { logExt(textOf(text)); });
}

void setLogLevel(int32_t level, uint8_t on)
{
    guarded("setLogLevel", [&] {
        if (level >= 0 && static_cast<size_t>(level) < switches.size())
            LogLevel.*switches[static_cast<size_t>(level)] = on != 0;
        else
            logErr(LogCategory::General, "Device: Invalid logLevel {} @{}", level, currentDevice()->device.ID);
    });
}
