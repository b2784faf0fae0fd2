#include "log/log.h"

#include "log/console.h"
#include "log/folder.h"
#include "log/log_writer.h"
#include "log/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>

namespace Tessel {

LogSwitches LogLevel;

namespace {

using namespace std::chrono_literals;

constexpr size_t queueLimit = 4096;
constexpr size_t textLimit = 65536;   // bytes; a longer text is cut
constexpr auto gatherPace = 10ms;     // between two looks; posting wakes the writer at most as often
constexpr auto stopPatience = 1000ms; // what the last lines may spend on a slow console
constexpr std::string_view bannerLine = "----------------------------------------------";

struct LogState
{
    std::mutex RunLock;   // serialises start and stop; taken before QueueLock
    bool Running = false; // guarded by RunLock
    std::thread Writer;   // guarded by RunLock

    std::atomic<bool> FileOn{false}, ConsoleOn{false}; // off until the first start; kept by a stop
    std::atomic<bool> StopRequested{false};

    std::mutex QueueLock;           // held to add or take one record
    std::deque<LogRecord> Queue;    // guarded by QueueLock
    bool WriterSleeps = false;      // until something is posted; guarded by QueueLock
    std::condition_variable Posted; // or the writer is to stop
};

// Never destroyed: threads may post while the process ends.
LogState &logState()
{
    static LogState &state = *new LogState;
    return state;
}

int64_t systemTicks()
{
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;
    return std::chrono::floor<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A copy, since a shortened string would keep its memory.
std::string withinLimit(std::string text)
{
    if (text.size() <= textLimit) return text;
    return std::string(cutTo(text, textLimit));
}

// Lines that there was no memory for, on their way in or out, and that no line has told of yet.
constinit std::atomic<uint64_t> lostLines{0};

// In place, so that keeping an error needs no memory.
constexpr size_t keptLimit = 4096;
struct KeptError
{
    std::array<char, keptLimit + 1> Text; // one more, to see where a longer text can be cut
    size_t Length;
};
constinit thread_local KeptError keptError{};

void keepError(fmt::string_view format, fmt::format_args args)
{
    std::array<char, keptLimit + 1> &text = keptError.Text;
    size_t size = 0;
    try {
        size = fmt::vformat_to_n(text.begin(), text.size(), format, args).size;
    } catch (const std::exception &) { // no memory to show an argument: what it is about at least
        size = std::min(format.size(), text.size());
        std::copy_n(format.begin(), size, text.begin());
    }
    keptError.Length = cutTo({text.data(), std::min(size, text.size())}, keptLimit).size();
}

std::optional<LogRecord> takeRecord(LogState &state)
{
    const std::lock_guard lock(state.QueueLock);
    if (state.Queue.empty()) return std::nullopt;
    std::optional<LogRecord> record(std::move(state.Queue.front()));
    state.Queue.pop_front();
    return record;
}

void waitForRecord(LogState &state)
{
    std::unique_lock lock(state.QueueLock);
    state.Posted.wait_for(lock, gatherPace, [&state] { return state.StopRequested.load(); });
    state.WriterSleeps = true;
    state.Posted.wait(lock, [&state] { return !state.Queue.empty() || state.StopRequested; });
    state.WriterSleeps = false;
}

bool tryToWrite(LogWriter &writer, const LogRecord &record) noexcept
{
    try {
        writeRecord(writer, record, std::time(nullptr));
        return true;
    } catch (const std::exception &) {
        return false;
    }
}

// Tells how many lines were lost, before the next that isn't.
void tellLost(LogWriter &writer) noexcept
{
    const uint64_t lost = lostLines.exchange(0);
    if (lost == 0) return;
    std::array<char, 64> text{};
    fmt::format_to_n(text.begin(), text.size() - 1, "Log: no memory for {} lines", lost);
    try {
        if (tryToWrite(writer, {LogSeverity::Wrn, LogCategory::General, systemTicks(), text.data()})) return;
    } catch (const std::exception &) {
    }
    lostLines += lost;
}

void writeQueued(LogWriter writer) noexcept
{
    LogState &state = logState();
    size_t afterStop = 0;
    // All that waited at the stop is out after `queueLimit` records, however much is posted meanwhile.
    while (afterStop < queueLimit) {
        const bool stopping = state.StopRequested; // read first: what was posted before the stop is still taken
        if (stopping && afterStop++ == 0)
            writer.ConsoleDeadline = std::chrono::steady_clock::now() + stopPatience;
        const std::optional<LogRecord> record = takeRecord(state);
        tellLost(writer);
        if (record) {
            if (!tryToWrite(writer, *record)) ++lostLines;
            continue;
        }
        flushConsole(writer);
        if (stopping) return;
        waitForRecord(state);
    }
    flushConsole(writer);
}

void makeLogFolder(const std::string &folder)
{
    try {
        if (std::filesystem::is_directory(nativePath(folder))) return;
        if (LogLevel.Api) logInf(LogCategory::Progress, "Create Folder: \"{}\"", folder);
        const int error = createFolder(folder);
        const std::string text =
            logLastError(fmt::format("Log: Create directory for logfiles \"{}\":", folder), error);
        if (!text.empty()) writeConsole(fmt::format("{} {}\n", error, text));
    } catch (const std::exception &failure) {
        writeConsole(fmt::format("{}\n", visible(failure.what())));
    }
}

// The host's signals are the business of its own threads.
std::thread startWithoutSignals(LogWriter writer)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread thread(writeQueued, std::move(writer));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

void queueText(LogSeverity severity, LogCategory category, std::string text)
{
    LogState &state = logState();
    LogRecord record{severity, category, systemTicks(), withinLimit(std::move(text))};
    std::optional<std::deque<LogRecord>> lost; // freed after the lock
    bool wakes = false;
    {
        const std::lock_guard lock(state.QueueLock);
        if (state.Queue.size() >= queueLimit) lost.emplace().swap(state.Queue);
        state.Queue.push_back(std::move(record));
        wakes = std::exchange(state.WriterSleeps, false);
    }
    if (wakes) state.Posted.notify_one();
    if (lost && state.ConsoleOn) writeConsole("Buffer overrun in Log!!!\n", 0ms);
}

} // namespace

void postFormatted(LogSeverity severity, LogCategory category, fmt::string_view format,
                   fmt::format_args args) noexcept
{
    if (severity == LogSeverity::Err) keepError(format, args);
    try {
        const LogState &state = logState();
        if (state.ConsoleOn || state.FileOn) queueText(severity, category, fmt::vformat(format, args));
    } catch (const std::exception &) {
        ++lostLines;
    }
}

std::string_view lastError() noexcept
{
    return {keptError.Text.data(), keptError.Length};
}

void forgetLastError() noexcept
{
    keptError.Length = 0;
}

void logExt(std::string_view text) noexcept
{
    postLog(LogSeverity::Ext, LogCategory::General, "{}", text);
}

std::string logLastError(std::string_view prefix, int error)
{
    if (error == 0) return {};
    std::string text = std::generic_category().message(error);
    if (text.empty()) return text;
    logErr(LogCategory::General, "{} {} {}", prefix, error, text);
    errno = 0;
    return text;
}

void startLog(bool fileOn, bool consoleOn, std::string_view logFolder, std::string_view programName,
              std::string_view versionString, bool coloursOn)
{
    LogState &state = logState();
    const std::lock_guard lock(state.RunLock);
    if (state.Running) return;
    lookForConsole();
    state.StopRequested = false;
    state.FileOn = fileOn;
    state.ConsoleOn = consoleOn;

    const std::string folder = normalPath(logFolder);
    if (LogLevel.Api) {
        logInf(LogCategory::Progress, "{}", bannerLine);
        logInf(LogCategory::Progress, "INIT");
        logInf(LogCategory::Progress, "{} {}", programName, versionString);
    }
    if (fileOn) makeLogFolder(folder);

    LogWriter writer;
    writer.LogFolder = folder;
    writer.FileOn = fileOn;
    writer.ConsoleOn = consoleOn;
    writer.ColoursOn = coloursOn;
    tzset(); // here, since a getenv in the writer's thread would race with a setenv of the host
    state.Writer = startWithoutSignals(std::move(writer));
    state.Running = true;
}

void stopLog()
{
    LogState &state = logState();
    const std::lock_guard lock(state.RunLock);
    if (!state.Running) return;
    if (LogLevel.Api) {
        logInf(LogCategory::Progress, "EXIT");
        logInf(LogCategory::Progress, "{}", bannerLine);
    }
    {
        const std::lock_guard queue(state.QueueLock);
        state.StopRequested = true;
    }
    state.Posted.notify_one();
    state.Writer.join(); // its file is closed with it
    state.Running = false;
}

} // namespace Tessel

fmt::format_context::iterator fmt::formatter<Tessel::LogText>::format(const Tessel::LogText &text,
                                                                      fmt::format_context &context) const
{
    using Base = fmt::formatter<fmt::string_view>;
    const std::string_view shortened = Tessel::cutTo(text.Text, Tessel::textLimit);
    if (Tessel::isVisible(shortened)) return Base::format(shortened, context);
    const auto show = text.KeepsLines ? Tessel::visibleLines : Tessel::visible;
    return Base::format(show(shortened), context);
}
