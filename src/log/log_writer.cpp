#include "log/log_writer.h"

#include "log/console.h"
#include "log/text.h"

#include <climits>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace Tessel {

namespace {

constexpr int64_t ticksPerSecond = 10'000'000;

struct SeverityLook
{
    std::string_view Tag;
    uint32_t Colour;
};

SeverityLook lookOf(LogSeverity severity)
{
    switch (severity) {
    case LogSeverity::Inf: return {"INF", 7};
    case LogSeverity::Dev: return {"DEV", 5};
    case LogSeverity::Deb: return {"DEB", 3};
    case LogSeverity::Wrn: return {"WRN", 4};
    case LogSeverity::Err: return {"ERR", 2};
    case LogSeverity::Ext: return {"EXT", 6};
    }
    return {"", UINT32_MAX};
}

std::tm localTime(std::time_t time)
{
    std::tm local{};
    local.tm_mday = 1;
    localtime_r(&time, &local);
    return local;
}

std::string dayText(const std::tm &time)
{
    return fmt::format("{:02}{:02}{:02}", time.tm_year % 100, time.tm_mon + 1, time.tm_mday);
}

int createLogFile(LogWriter &writer, std::string path, bool mustBeNew)
{
    writer.CurrentFileName = std::move(path);
    logInf(LogCategory::Progress, "Create {}", writer.CurrentFileName);
    return writer.File.open(writer.CurrentFileName, mustBeNew);
}

// The day's first run writes to the day file, any later one to a file of its own, named to the second.
void rotateIfNewDay(LogWriter &writer, std::time_t now)
{
    const std::tm time = localTime(now);
    const int32_t day = time.tm_year * 366 + time.tm_yday;
    if (day == writer.LastDay) return;
    writer.File.close();

    int error = createLogFile(writer, fmt::format("{}\\{}.log", writer.LogFolder, dayText(time)), true);
    if (error == EEXIST) {
        const std::string second = fmt::format("{:02}{:02}{:02}", time.tm_hour, time.tm_min, time.tm_sec);
        error =
            createLogFile(writer, fmt::format("{}\\{}_{}.log", writer.LogFolder, dayText(time), second), false);
    }
    if (error) logLastError(fmt::format("Log: Create logfile \"{}\":", writer.CurrentFileName), error);
    writer.LastDay = day; // not before: whoever lacks memory for all this tries again
}

} // namespace

int LogFile::open(std::string_view path, bool mustBeNew)
{
    close();
    // O_NONBLOCK: a fifo of that name must not hold the writer; it means nothing to a file.
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | (mustBeNew ? O_EXCL : 0);
    FileHandle opened(::open(nativePath(path).c_str(), flags, 0666));
    if (!opened.isOpen()) return errno;
    // The host closed a standard stream: what it prints there is no log line.
    if (opened.descriptor() <= STDERR_FILENO)
        opened = FileHandle(fcntl(opened.descriptor(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!opened.isOpen()) return errno;
    file = std::move(opened);
    return 0;
}

void LogFile::close()
{
    file.close();
    lineTorn = false;
}

void LogFile::writeLine(std::string line)
{
    if (!file.isOpen()) return;
    if (lineTorn) line.insert(line.begin(), '\n');
    line += '\n';
    const ssize_t written = write(file.descriptor(), line.data(), line.size());
    if (written > 0) lineTorn = static_cast<size_t>(written) < line.size();
}

std::string logLine(const LogRecord &record)
{
    const int64_t fraction = (record.Ticks % ticksPerSecond + ticksPerSecond) % ticksPerSecond;
    const std::tm time = localTime((record.Ticks - fraction) / ticksPerSecond);
    return fmt::format("{}_{:02}:{:02}:{:02}.{:07} {} {}", dayText(time), time.tm_hour, time.tm_min,
                       time.tm_sec, fraction, lookOf(record.Severity).Tag, record.Text);
}

void writeRecord(LogWriter &writer, const LogRecord &record, std::time_t now)
{
    if (writer.FileOn) rotateIfNewDay(writer, now);
    std::string console;
    std::string line = logLine(record);
    if (writer.ConsoleOn) console = line + "\n";
    if (writer.ConsoleOn && writer.ColoursOn) console.insert(0, colourSequence(lookOf(record.Severity).Colour));
    if (writer.ColoursOn) console += colourSequence(0); // of each record, with the console off too

    if (writer.FileOn) writer.File.writeLine(std::move(line));
    if (writer.ConsoleText.size() + console.size() > PIPE_BUF) flushConsole(writer);
    writer.ConsoleText += console;
}

void flushConsole(LogWriter &writer)
{
    using std::chrono::milliseconds;
    if (writer.ConsoleText.empty()) return;
    const auto left =
        std::chrono::floor<milliseconds>(writer.ConsoleDeadline - std::chrono::steady_clock::now());
    const milliseconds patience =
        writer.ConsoleHung ? milliseconds{0} : std::clamp(left, milliseconds{0}, consolePatience);
    writer.ConsoleHung = !writeConsole(writer.ConsoleText, patience);
    writer.ConsoleText.clear();
}

} // namespace Tessel
