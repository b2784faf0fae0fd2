// The console: what it is given, and that it can't hold the log when it is full, gone or closed.
#include "log/console.h"

#include "log/log_writer.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

using namespace Tessel;
using namespace TestSupport;

namespace {

using Clock = std::chrono::steady_clock;

// Puts another descriptor, or none, in the place of standard output.
class StandardOutput
{
public:
    explicit StandardOutput(int replacement)
    {
        std::fflush(stdout);
        kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
        replacement >= 0 ? dup2(replacement, STDOUT_FILENO) : close(STDOUT_FILENO);
        lookForConsole();
    }
    ~StandardOutput()
    {
        dup2(kept, STDOUT_FILENO);
        close(kept);
        lookForConsole();
    }

private:
    int kept;
};

struct Pipe
{
    Pipe() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Pipe()
    {
        closeReader();
        closeWriter();
    }
    void closeReader() { close(std::exchange(ends[0], -1)); }
    void closeWriter() { close(std::exchange(ends[1], -1)); }
    std::string readAll()
    {
        closeWriter();
        std::string text;
        char block[4096];
        for (ssize_t count; (count = read(ends[0], block, sizeof block)) > 0;)
            text.append(block, static_cast<size_t>(count));
        return text;
    }
    void fill()
    {
        fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::string block(4096, '.');
        while (write(ends[1], block.data(), block.size()) > 0) {
        }
        fcntl(ends[1], F_SETFL, 0);
    }
    std::array<int, 2> ends{-1, -1};
};

size_t count(const std::string &text, std::string_view part)
{
    size_t found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) found++;
    return found;
}

TEST(Console, ColourNumbers)
{
    const struct
    {
        uint32_t number;
        const char *sequence;
    } cases[] = {{0, "\033[0m"},     {1, "\033[0;30m"},   {8, "\033[0;37m"},   {9, "\033[1;30m"},
                 {16, "\033[1;37m"}, {17, "\033[4;30m"},  {24, "\033[4;37m"},  {25, "\033[0;90m"},
                 {32, "\033[0;97m"}, {33, "\033[1;90m"},  {40, "\033[1;97m"},  {41, "\033[40m"},
                 {48, "\033[47m"},   {49, "\033[0;100m"}, {56, "\033[0;107m"}, {57, ""},
                 {UINT32_MAX, ""}};
    for (const auto &c : cases) EXPECT_EQ(colourSequence(c.number), c.sequence) << c.number;
}

TEST(Console, ALineIsColouredAndEachRecordResets)
{
    const struct
    {
        LogSeverity severity;
        const char *colour;
    } cases[] = {{LogSeverity::Inf, "36"}, {LogSeverity::Dev, "34"}, {LogSeverity::Deb, "32"},
                 {LogSeverity::Wrn, "33"}, {LogSeverity::Err, "31"}, {LogSeverity::Ext, "35"}};
    for (const auto &c : cases) {
        LogWriter writer;
        writer.ConsoleOn = true;
        const LogRecord record{c.severity, LogCategory::Progress, 0, "text"};
        writeRecord(writer, record, 0);
        EXPECT_EQ(writer.ConsoleText, "\033[0;" + std::string(c.colour) + "m" + logLine(record) + "\n\033[0m");
    }
    LogWriter off;
    writeRecord(off, {}, 0);
    EXPECT_EQ(off.ConsoleText, "\033[0m");
}

TEST(Console, AllLinesReachAPipeThatIsRead)
{
    Pipe pipe;
    {
        const StandardOutput redirected(pipe.ends[1]);
        startLog(false, true, "", "Tessel", "v1");
        for (int i = 0; i < 200; i++) logWrn(LogCategory::General, "line {}", i);
        stopLog();
    }
    const std::string text = pipe.readAll();
    EXPECT_EQ(count(text, " WRN line "), 200u);
    EXPECT_EQ(count(text, "\033[0m"), count(text, "\n"));
    EXPECT_LT(text.find("INF INIT"), text.find("INF Tessel v1\n"));
    EXPECT_LT(text.find("line 199"), text.find("INF EXIT"));
}

// Whatever standard output is, the file gets every line and the stop comes soon.
class BrokenConsole : public testing::Test
{
protected:
    static void expectUnharmed(int replacement)
    {
        const TempFolder folder;
        const auto before = Clock::now();
        {
            const StandardOutput redirected(replacement);
            startLog(true, true, folder.path().string(), "Tessel", "v1");
            for (int i = 0; i < 2000; i++) logWrn(LogCategory::General, "line {}", i);
            stopLog();
        }
        EXPECT_LT(Clock::now() - before, std::chrono::seconds(2));
        const auto lines = logLines(folder.path());
        EXPECT_EQ(countLines(lines, "WRN line "), 2000u);
        EXPECT_EQ(countLines(lines, "EXIT"), 1u);
        for (const std::string &line : lines) EXPECT_EQ(line.find('\033'), std::string::npos);
    }
};

TEST_F(BrokenConsole, Closed)
{
    expectUnharmed(-1);
}

TEST_F(BrokenConsole, PipeWithoutReader)
{
    Pipe pipe;
    pipe.closeReader();
    expectUnharmed(pipe.ends[1]);
}

TEST_F(BrokenConsole, PipeThatNobodyReads)
{
    Pipe pipe;
    pipe.fill();
    expectUnharmed(pipe.ends[1]);
    EXPECT_EQ(fcntl(pipe.ends[1], F_GETFL) & O_NONBLOCK, 0) << "the host's descriptor stays blocking";
}

TEST_F(BrokenConsole, SocketThatNobodyReads)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    expectUnharmed(ends[1]);
    close(ends[0]);
    expectUnharmed(ends[1]);
    close(ends[1]);
}

TEST_F(BrokenConsole, FullDevice)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    expectUnharmed(full);
    close(full);
}

TEST(Console, AMissingReaderRaisesNoSignalOnTheCallingThread)
{
    Pipe pipe;
    pipe.closeReader();
    std::array<int, 2> sockets{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()), 0);
    close(sockets[0]);
    for (const int output : {pipe.ends[1], sockets[1]}) {
        bool written = true;
        {
            const StandardOutput redirected(output);
            errno = EDOM;
            written = writeConsole("text\n"); // SIGPIPE would end the test here
        }
        EXPECT_FALSE(written);
        EXPECT_EQ(errno, EDOM);
    }
    close(sockets[1]);
}

TEST(Console, AHungConsoleIsWaitedForOnce)
{
    Pipe pipe;
    pipe.fill();
    LogWriter writer;
    writer.ConsoleOn = true;
    const auto writeOne = [&] {
        writeRecord(writer, {}, 0);
        flushConsole(writer);
        return !writer.ConsoleHung;
    };
    std::array<char, 65536> sink;
    int written = 0;
    Clock::duration spent{};
    {
        const StandardOutput redirected(pipe.ends[1]);
        const auto before = Clock::now();
        for (int i = 0; i < 30; i++) written += writeOne();
        spent = Clock::now() - before;
        if (read(pipe.ends[0], sink.data(), sink.size()) > 0) written += 100 * writeOne();
    }
    EXPECT_LT(spent, 10 * consolePatience);
    EXPECT_EQ(written, 100) << "nothing while it hung, and again as soon as somebody reads";
}

TEST(Console, AFileThatTookTheNumberOfAClosedConsoleIsSpared)
{
    const TempFolder folder;
    {
        const StandardOutput closed(-1);
        const int data = open(folder.file("data").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(data, STDOUT_FILENO);
        EXPECT_FALSE(writeConsole("text\n"));
    }
    EXPECT_EQ(std::filesystem::file_size(folder.file("data")), 0u);
}

TEST(Console, TheLogFileNeverTakesItsNumber)
{
    const TempFolder folder;
    const StandardOutput closed(-1);
    LogFile file;
    EXPECT_EQ(file.open(folder.file("x.log"), true), 0);
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1);
    file.writeLine("line");
    EXPECT_EQ(logLines(folder.path()), std::vector<std::string>{"line"});
}

} // namespace
