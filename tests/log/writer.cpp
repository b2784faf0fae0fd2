// Lines, the names of the files, and what a full disc does, played through on a writer without its thread.
#include "log/log_writer.h"
#include "support/log_files.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <optional>
#include <sys/resource.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr std::time_t evening = 1794695399; // 2026-11-14 22:29:59 UTC
constexpr int64_t ticksPerSecond = 10'000'000;

// A zone in which `evening` is 2026-11-15 03:59:59.
class Zone
{
public:
    Zone()
    {
        if (const char *value = std::getenv("TZ")) before = value;
        setenv("TZ", "TST-05:30", 1);
        tzset();
    }
    ~Zone()
    {
        before ? setenv("TZ", before->c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> before;
};

class LogWriterTest : public testing::Test
{
protected:
    LogWriter writerInFolder() const
    {
        LogWriter writer;
        writer.LogFolder = folder.path().string();
        writer.FileOn = true;
        return writer;
    }
    std::string content(const std::string &name) const { return contents(folder.file(name)); }
    static LogRecord record(std::string text)
    {
        return {LogSeverity::Wrn, LogCategory::Progress, evening * ticksPerSecond + 12, std::move(text)};
    }

    Zone zone;
    TempFolder folder;
};

TEST_F(LogWriterTest, LineHasLocalTimeOfTheCallTagAndText)
{
    const struct
    {
        LogSeverity severity;
        int64_t fraction;
        const char *text, *expected, *colour;
    } cases[] = {
        {LogSeverity::Inf, 0, "Init", "261115_03:59:59.0000000 INF Init", "36"},
        {LogSeverity::Dev, 1, "", "261115_03:59:59.0000001 DEV ", "34"},
        {LogSeverity::Deb, 9'999'999, "a\nb", "261115_03:59:59.9999999 DEB a\nb", "32"},
        {LogSeverity::Wrn, 1'234'567, "{} %d", "261115_03:59:59.1234567 WRN {} %d", "33"},
        {LogSeverity::Err, 500, "x", "261115_03:59:59.0000500 ERR x", "31"},
        {LogSeverity::Ext, -evening * ticksPerSecond - 1, "x", "700101_05:29:59.9999999 EXT x", "35"},
    };
    for (const auto &c : cases) {
        const LogRecord given{c.severity, LogCategory::Progress, evening * ticksPerSecond + c.fraction, c.text};
        EXPECT_EQ(logLine(given), c.expected);
        LogWriter writer;
        writeRecord(writer, given, 0); // the console is off
        writer.ConsoleOn = true;
        writeRecord(writer, given, 0);
        EXPECT_EQ(writer.ConsoleText, fmt::format("\033[0m\033[0;{}m{}\n\033[0m", c.colour, c.expected));
    }
}

TEST_F(LogWriterTest, EachRunAfterTheDaysFirstHasAFileOfItsOwn)
{
    for (int run = 0; run < 3; run++) {
        LogWriter writer = writerInFolder();
        writeRecord(writer, record(fmt::format("run {}", run)), evening + (run == 2 ? 60 : run));
    }
    EXPECT_EQ(logFileNames(folder.path()),
              (std::vector<std::string>{"261115.log", "261115_040000.log", "261115_040059.log"}));
    EXPECT_EQ(logLines(folder.path()), (std::vector<std::string>{"WRN run 0", "WRN run 1", "WRN run 2"}));

    // Within the same second there is no third name: the file is appended to.
    LogWriter writer = writerInFolder();
    writeRecord(writer, record("again"), evening + 60);
    EXPECT_EQ(countLines(logLines(folder.path()), "WRN"), 4u);
    EXPECT_EQ(logFileNames(folder.path()).size(), 3u);
}

TEST_F(LogWriterTest, MidnightOpensTheNextDaysFileBeforeTheRecord)
{
    const std::time_t midnight = evening + 20 * 3600 + 1; // 2026-11-16 00:00:00 in the zone
    LogWriter writer = writerInFolder();
    writeRecord(writer, record("late"), midnight - 2);
    writeRecord(writer, record("last"), midnight - 1);
    writeRecord(writer, record("first"), midnight);
    writeRecord(writer, record("month later"), midnight + 30 * 86400);
    EXPECT_EQ(logFileNames(folder.path()),
              (std::vector<std::string>{"261115.log", "261116.log", "261216.log"}));
    EXPECT_EQ(logLines(folder.path()),
              (std::vector<std::string>{"WRN late", "WRN last", "WRN first", "WRN month later"}));
}

TEST_F(LogWriterTest, AFullDiscTearsOneLineAndTheNextStartsAfresh)
{
    const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);

    LogWriter writer = writerInFolder();
    writeRecord(writer, record("one"), evening);
    const auto size = std::filesystem::file_size(folder.file("261115.log"));
    rlimit full = before;
    full.rlim_cur = size + 10; // room for a part of the next line
    setrlimit(RLIMIT_FSIZE, &full);
    writeRecord(writer, record("two"), evening);
    writeRecord(writer, record("three"), evening);
    setrlimit(RLIMIT_FSIZE, &before);
    writeRecord(writer, record("four"), evening);
    std::signal(SIGXFSZ, handlerBefore);

    EXPECT_EQ(content("261115.log"), "261115_03:59:59.0000012 WRN one\n261115_03:\n"
                                     "261115_03:59:59.0000012 WRN four\n");
}

} // namespace
