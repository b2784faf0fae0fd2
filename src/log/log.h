// The process-wide log: any thread posts a record, one writer thread brings it to console and day file.
// Posting costs a string copy and a short lock and never waits for a disc or a console.
#pragma once

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

enum class LogSeverity : uint32_t { Inf = 1, Dev = 2, Deb = 3, Wrn = 4, Err = 5, Ext = 6 };

enum class LogCategory : uint32_t { Progress = 0, General = 2, Device = 3 };

// The switches are tested by the call site before it formats; warnings and errors are posted whatever they say.
struct LogSwitches
{
    std::atomic<bool> Api{true};
    std::atomic<bool> Config{false};
    std::atomic<bool> Device{true};
    std::atomic<bool> DataFile{true};
    std::atomic<bool> Manipulators{false};
    std::atomic<bool> IniTrace{true}; // the walk through system.ini; nothing sets it
};
extern LogSwitches LogLevel;

void postLog(LogSeverity severity, LogCategory category, std::string text);

template <class... Args>
void logInf(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    postLog(LogSeverity::Inf, category, fmt::format(format, std::forward<Args>(args)...));
}
template <class... Args>
void logDev(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    postLog(LogSeverity::Dev, category, fmt::format(format, std::forward<Args>(args)...));
}
template <class... Args>
void logDeb(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    postLog(LogSeverity::Deb, category, fmt::format(format, std::forward<Args>(args)...));
}
template <class... Args>
void logWrn(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    postLog(LogSeverity::Wrn, category, fmt::format(format, std::forward<Args>(args)...));
}
template <class... Args>
void logErr(LogCategory category, fmt::format_string<Args...> format, Args &&...args)
{
    postLog(LogSeverity::Err, category, fmt::format(format, std::forward<Args>(args)...));
}

// The last error that the calling thread has posted since it forgot the ones before, whether the log is on or
// not; of a very long text the beginning. It stays until the thread posts another one or forgets.
std::string_view lastError() noexcept;
void forgetLastError() noexcept;

// Handed in from outside the library.
void logExt(std::string_view text);

// Posts "<prefix> <number> <text>" for an errno value and returns the system's text; does nothing for 0.
std::string logLastError(std::string_view prefix, int error);

// For lines of an end, which goes on where there is no memory for them.
template <class Lines>
void tryToLog(Lines lines) noexcept
{
    try {
        lines();
    } catch (...) { // the line is lost
    }
}

// Start and stop of the writer thread; called by the lifecycle of the library alone. `logFolder` and the names
// are those of the banner lines and files.
void startLog(bool fileOn, bool consoleOn, std::string_view logFolder, std::string_view programName,
              std::string_view versionString);
void stopLog();

} // namespace Tessel
