// The console: what it is given, and that it can't hold the log when it is full, gone or closed.
#include "log/console.h"

#include "log/file_handle.h"
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
    explicit StandardOutput(int replacement) : kept(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10))
    {
        std::fflush(stdout);
        replacement >= 0 ? dup2(replacement, STDOUT_FILENO) : close(STDOUT_FILENO);
        lookForConsole();
    }
    ~StandardOutput()
    {
        dup2(kept.descriptor(), STDOUT_FILENO);
        lookForConsole();
    }

private:
    FileHandle kept;
};

// A pipe or a pair of sockets: what stands for standard output, and who reads it.
struct Channel
{
    FileHandle reader, writer;
};

Channel makeChannel(bool sockets = false)
{
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(sockets ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : pipe2(ends.data(), O_CLOEXEC), 0);
    return {FileHandle(ends[0]), FileHandle(ends[1])};
}

void fill(const FileHandle &writer)
{
    fcntl(writer.descriptor(), F_SETFL, O_NONBLOCK);
    const std::string block(4096, '.');
    while (write(writer.descriptor(), block.data(), block.size()) > 0) {
    }
    fcntl(writer.descriptor(), F_SETFL, 0);
}

// Whatever standard output is, the file gets every line and the stop comes soon.
TEST(Console, ABrokenOneHarmsNothing)
{
    const Channel unread = makeChannel(), unreadSocket = makeChannel(true);
    const FileHandle leftPipe = makeChannel().writer, leftSocket = makeChannel(true).writer;
    fill(unread.writer);
    const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const std::pair<const char *, int> cases[] = {
        {"closed", -1},
        {"pipe that nobody reads", unread.writer.descriptor()},
        {"socket that nobody reads", unreadSocket.writer.descriptor()},
        {"pipe without reader", leftPipe.descriptor()},
        {"socket without reader", leftSocket.descriptor()},
        {"full device", full.descriptor()}};
    for (const auto &[name, output] : cases) {
        SCOPED_TRACE(name);
        const TempFolder folder;
        const auto before = Clock::now();
        {
            const StandardOutput redirected(output);
            startLog(true, true, folder.path().string(), "Tessel", "v1");
            for (int i = 0; i < 2000; i++) logWrn(LogCategory::General, "line {}", i);
            stopLog();
        }
        EXPECT_LT(Clock::now() - before, std::chrono::seconds(2));
        const auto lines = logLines(folder.path());
        EXPECT_EQ(countLines(lines, "WRN line "), 2000u);
        EXPECT_EQ(countLines(lines, "EXIT"), 1u);
        EXPECT_EQ(countLines(lines, "\033"), 0u) << "colours are for the console";
    }
    EXPECT_EQ(fcntl(unread.writer.descriptor(), F_GETFL) & O_NONBLOCK, 0)
        << "the host's descriptor stays blocking";
}

TEST(Console, AllLinesReachAPipeThatIsRead)
{
    Channel pipe = makeChannel();
    {
        const StandardOutput redirected(pipe.writer.descriptor());
        startLog(false, true, "", "Tessel", "v1");
        for (int i = 0; i < 200; i++) logWrn(LogCategory::General, "line {}", i);
        stopLog();
    }
    pipe.writer.close();
    std::string text(65536, '\0');
    size_t end = 0;
    for (ssize_t count; (count = read(pipe.reader.descriptor(), text.data() + end, text.size() - end)) > 0;)
        end += static_cast<size_t>(count);
    size_t at = 0; // each line is there, in order, coloured, and the colour is reset behind it
    for (int i = 0; i < 200; i++) {
        at = text.find(fmt::format(" WRN line {}\n\033[0m", i), at);
        ASSERT_NE(at, std::string::npos) << i;
    }
    EXPECT_LT(text.find("INF INIT"), text.find("INF Tessel v1\n"));
    EXPECT_LT(at, text.find("INF EXIT"));
}

TEST(Console, AHungConsoleIsWaitedForOnce)
{
    const Channel pipe = makeChannel();
    fill(pipe.writer);
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
        const StandardOutput redirected(pipe.writer.descriptor());
        const auto before = Clock::now();
        for (int i = 0; i < 30; i++) written += writeOne();
        spent = Clock::now() - before;
        if (read(pipe.reader.descriptor(), sink.data(), sink.size()) > 0) written += 100 * writeOne();
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
