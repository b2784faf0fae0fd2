// What becomes of a log record: its line, the console, the day file and its rotation.
//
// A `LogWriter` is the writer thread's own; nobody else touches it. The caller passes the time, so that a
// change of day can be tested.
#pragma once

#include "log/file_handle.h"
#include "log/log.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace Tessel {

struct LogRecord
{
    LogSeverity Severity = LogSeverity::Inf;
    LogCategory Category = LogCategory::Progress;
    int64_t Ticks = 0; // 100 ns since 1970; the moment of the call
    std::string Text;
};

// The day file, appended to.
class LogFile
{
public:
    // Returns the error number, 0 if it went well, EEXIST if `mustBeNew` and it is there.
    int open(std::string_view path, bool mustBeNew);
    void close();
    void writeLine(std::string line);

private:
    FileHandle file;       // never one of the three standard numbers
    bool lineTorn = false; // the disc took only part of a line: the next one starts with a line feed
};

struct LogWriter
{
    std::string LogFolder; // normal form
    bool FileOn = false;
    bool ConsoleOn = false;
    bool ColoursOn = true; // of the console

    int32_t LastDay = -1; // of the last record written while FileOn
    std::string CurrentFileName;
    LogFile File;

    std::string ConsoleText;  // for the next write to the console
    bool ConsoleHung = false; // the last write was given up: don't wait again until one goes through
    std::chrono::steady_clock::time_point ConsoleDeadline = std::chrono::steady_clock::time_point::max();
};

std::string logLine(const LogRecord &record);

// `now` is the moment of writing; it decides on the day file.
void writeRecord(LogWriter &writer, const LogRecord &record, std::time_t now);

// Console text is gathered while records are queued; this writes the rest of it.
void flushConsole(LogWriter &writer);

} // namespace Tessel
