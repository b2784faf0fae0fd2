#include "settings/system_ini.h"

#include "log/console.h"
#include "log/log.h"
#include "log/text.h"
#include "settings/ini_text.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

namespace Tessel {

namespace {

// ${XDG_DATA_HOME:-$HOME/.local/share}/Tessel; a relative folder counts as none.
std::string initialDataPath()
{
    const auto absolute = [](const char *name) {
        const char *value = std::getenv(name);
        return value && value[0] == '/' ? std::string(value) : std::string();
    };
    if (const std::string data = absolute("XDG_DATA_HOME"); !data.empty()) return normalPath(data + "/Tessel");
    if (const std::string home = absolute("HOME"); !home.empty())
        return normalPath(home + "/.local/share/Tessel");
    return normalPath("/tmp/Tessel");
}

Settings initialSettings()
{
    Settings initial;
    initial.DataPath = initialDataPath();
    initial.ConfigPath = initial.DataPath + "\\Configs";
    return initial;
}

void setPair(std::string_view value, int32_t &first, int32_t firstFallback, int32_t &second,
             int32_t secondFallback)
{
    const auto fields = iniFields(value);
    if (fields.size() != 2) return;
    first = iniInteger(fields[0], firstFallback);
    second = iniInteger(fields[1], secondFallback);
}

void setDataPath(Settings &to, std::string_view value)
{
    to.DataPath = normalPath(value);
    logDeb(LogCategory::Progress, "setDataFilePath {}", to.DataPath);
    to.TgxFolder = to.DataPath;
}

// The value counts in units of 2^20 and wraps at 32 bits, as hosts know it: 2048 gives the smallest size.
void setBufferSize(Settings &to, std::string_view value)
{
    const std::optional<int32_t> number = parseInteger(value);
    if (!number) // "boolean" is what the line has always said
        writeConsole(fmt::format("{} ERR Can not parse {} to boolean\n{}", colourSequence(2), visible(value),
                                 colourSequence(0)));
    const auto shifted = static_cast<int32_t>(static_cast<uint32_t>(number.value_or(32)) << 20);
    to.BufferSize = static_cast<uint64_t>(std::max<int64_t>(shifted, int64_t{minimumStreamRecords}));
    to.StreamRecords = to.BufferSize;
}

constexpr int32_t mostThreads = 256;
constinit std::atomic<int32_t> wantedThreads{0}; // 0: one for each core

// What is no such number is as 0.
void setThreads(Settings &, std::string_view value)
{
    if (!setCountingThreads(iniInteger(value, 0))) wantedThreads = 0;
}

// What a key does. A bad value takes the fallback, which isn't always the initial value.
struct KeyRule
{
    std::string_view Section;
    std::string_view Key;
    void (*Act)(Settings &to, std::string_view value);
};

constexpr KeyRule keyRules[] = {
    {"SW", "Design", [](Settings &to, std::string_view value) { to.Window.Design = iniInteger(value, 1); }},
    {"SW", "Size",
     [](Settings &to, std::string_view value) {
         setPair(value, to.Window.Width, 1024, to.Window.Height, 768);
     }},
    {"SW", "Pos",
     [](Settings &to, std::string_view value) { setPair(value, to.Window.PosX, 50, to.Window.PosY, 50); }},
    {"SW", "Max", [](Settings &to, std::string_view value) { to.Window.Max = iniBoolean(value, false); }},
    {"SW", "ShowMeasClassPics",
     [](Settings &to, std::string_view value) { to.Window.ShowMeasClassPics = iniBoolean(value, false); }},
    {"SW", "Data", [](Settings &to, std::string_view value) { to.DataPath = normalPath(value); }},
    {"Paths", "Config", [](Settings &to, std::string_view value) { to.ConfigPath = normalPath(value); }},
    {"Paths", "Data", setDataPath},
    {"Log", "File", [](Settings &to, std::string_view value) { to.LogFile = iniBoolean(value, true); }},
    {"Log", "Console", [](Settings &to, std::string_view value) { to.LogConsole = iniBoolean(value, true); }},
    {"Log", "Colours", [](Settings &to, std::string_view value) { to.LogColours = iniBoolean(value, true); }},
    {"LogLevel", "Api", [](Settings &, std::string_view value) { LogLevel.Api = iniBoolean(value, true); }},
    {"LogLevel", "Config",
     [](Settings &, std::string_view value) { LogLevel.Config = iniBoolean(value, false); }},
    {"LogLevel", "DataFile",
     [](Settings &, std::string_view value) { LogLevel.DataFile = iniBoolean(value, false); }},
    {"LogLevel", "Device",
     [](Settings &, std::string_view value) { LogLevel.Device = iniBoolean(value, true); }},
    {"LogLevel", "Manipulators",
     [](Settings &, std::string_view value) { LogLevel.Manipulators = iniBoolean(value, true); }},
    {"Toasts", "Error",
     [](Settings &to, std::string_view value) { to.Toasts.Error = iniBoolean(value, true); }},
    {"Toasts", "AppendDebugInfo",
     [](Settings &to, std::string_view value) { to.Toasts.AppendDebugInfo = iniBoolean(value, true); }},
    {"Toasts", "WarnDevice",
     [](Settings &to, std::string_view value) { to.Toasts.WarnDevice = iniBoolean(value, true); }},
    {"Toasts", "WarnConfig",
     [](Settings &to, std::string_view value) { to.Toasts.WarnConfig = iniBoolean(value, true); }},
    {"Toasts", "WarnOther",
     [](Settings &to, std::string_view value) { to.Toasts.WarnOther = iniBoolean(value, true); }},
    {"Toasts", "Info", [](Settings &to, std::string_view value) { to.Toasts.Info = iniBoolean(value, true); }},
    {"Toasts", "Debug",
     [](Settings &to, std::string_view value) { to.Toasts.Debug = iniBoolean(value, true); }},
    {"Params", "BufferSize", setBufferSize},
    {"Params", "Threads", setThreads},
};

void actOn(std::string_view section, const IniEntry &key)
{
    const auto *rule = std::find_if(std::begin(keyRules), std::end(keyRules), [&](const KeyRule &candidate) {
        return candidate.Section == section && candidate.Key == key.Name;
    });
    if (rule != std::end(keyRules)) {
        rule->Act(settings(), key.Value);
    } else if (section != "Params") { // further keys of that section belong to the host
        logWrn(LogCategory::General, "Unexpected Ini entry: {} {} {}", section, key.Name, key.Value);
    }
}

void walk(const IniText &text)
{
    for (const IniSection &section : text) {
        if (LogLevel.IniTrace) logDeb(LogCategory::Progress, "INI Section {}", section.Name);
        for (const IniEntry &key : section.Keys) {
            if (LogLevel.IniTrace) {
                logDeb(LogCategory::Progress, "INI Key {}", key.Name);
                logDeb(LogCategory::Progress, "INI entry: {} {} {}", section.Name, key.Name, key.Value);
            }
            actOn(section.Name, key);
        }
    }
}

} // namespace

Settings &settings()
{
    static Settings &current = *new Settings(initialSettings()); // never destroyed: runs may outlive main
    return current;
}

std::string logFolder()
{
    return settings().DataPath + "\\Logs";
}

uint64_t streamRecords()
{
    return std::max(settings().StreamRecords, minimumStreamRecords);
}

uint32_t countingThreads()
{
    if (const int32_t wanted = wantedThreads) return static_cast<uint32_t>(wanted);
    return std::clamp(std::thread::hardware_concurrency(), 1u, static_cast<uint32_t>(mostThreads));
}

bool setCountingThreads(int32_t threads)
{
    if (threads < 0 || threads > mostThreads) return false;
    wantedThreads = threads;
    return true;
}

bool loadSettingsIni(std::string_view path)
{
    logInf(LogCategory::Progress, "load system.ini \"{}\"", normalPath(path));
    const std::optional<std::string> bytes = readIniFile(path);
    const std::optional<IniText> text = bytes ? parseIni(*bytes) : std::nullopt;
    if (!text) return false;
    walk(*text);
    return true;
}

} // namespace Tessel
