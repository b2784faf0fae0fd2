// The process-wide log: any thread posts a record, one writer thread brings it to console and day file.
// Posting costs a string copy and a short lock and never waits for a disc or a console.
#pragma once

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

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

// A text among the arguments may come from a file, a peer or the host: what a reader would act on is shown as
// by visible(), line feeds too. A line feed of the format is the record's own.
struct LogText
{
    std::string_view Text;
    bool KeepsLines = false;
};

// An argument whose line feeds stay: what an instrument says of itself, or what recordText() has made.
inline LogText withLines(std::string_view text)
{
    return {text, true};
}

template <class Arg>
decltype(auto) logArgument(const Arg &arg)
{
    if constexpr (std::is_convertible_v<const Arg &, std::string_view>)
        return LogText{arg};
    else
        return arg;
}

// The text that such a record would have.
template <class... Args>
std::string recordText(fmt::format_string<Args...> format, Args &&...args)
{
    return [&](const auto &...shown) {
        return fmt::vformat(format, fmt::make_format_args(shown...));
    }(logArgument(args)...);
}

// No log line ends what logs it: one that can't be made, for want of memory, is lost and counted.
void postFormatted(LogSeverity severity, LogCategory category, fmt::string_view format,
                   fmt::format_args args) noexcept;

template <class... Args>
void postLog(LogSeverity severity, LogCategory category, fmt::string_view format, const Args &...args) noexcept
{
    [&](const auto &...shown) {
        postFormatted(severity, category, format, fmt::make_format_args(shown...));
    }(logArgument(args)...);
}

template <class... Args>
void logInf(LogCategory category, fmt::format_string<Args...> format, Args &&...args) noexcept
{
    postLog(LogSeverity::Inf, category, format, args...);
}
template <class... Args>
void logDev(LogCategory category, fmt::format_string<Args...> format, Args &&...args) noexcept
{
    postLog(LogSeverity::Dev, category, format, args...);
}
template <class... Args>
void logDeb(LogCategory category, fmt::format_string<Args...> format, Args &&...args) noexcept
{
    postLog(LogSeverity::Deb, category, format, args...);
}
template <class... Args>
void logWrn(LogCategory category, fmt::format_string<Args...> format, Args &&...args) noexcept
{
    postLog(LogSeverity::Wrn, category, format, args...);
}
template <class... Args>
void logErr(LogCategory category, fmt::format_string<Args...> format, Args &&...args) noexcept
{
    postLog(LogSeverity::Err, category, format, args...);
}

// The last error that the calling thread has posted since it forgot the ones before, whether the log is on or
// not; of a very long text the beginning. It stays until the thread posts another one or forgets.
std::string_view lastError() noexcept;
void forgetLastError() noexcept;

// Handed in from outside the library.
void logExt(std::string_view text) noexcept;

// Posts "<prefix> <number> <text>" for an errno value and returns the system's text; does nothing for 0.
std::string logLastError(std::string_view prefix, int error);

// For a line of which the arguments need memory, where an end goes on without it.
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
              std::string_view versionString, bool coloursOn = true);
void stopLog();

} // namespace Tessel

template <>
struct fmt::formatter<Tessel::LogText> : fmt::formatter<fmt::string_view>
{
    fmt::format_context::iterator format(const Tessel::LogText &text, fmt::format_context &context) const;
};
