#include "log/console.h"

#include "log/file_handle.h"

#include <climits>
#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> consoleThere{true};

// Blocks SIGPIPE for this thread and swallows the one that a write may have raised.
class WithoutSigpipe
{
public:
    WithoutSigpipe()
    {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        pendingBefore = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal, &maskBefore);
    }
    ~WithoutSigpipe()
    {
        const timespec atOnce{};
        if (raised && !pendingBefore) sigtimedwait(&pipeSignal, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    }
    WithoutSigpipe(const WithoutSigpipe &) = delete;
    WithoutSigpipe &operator=(const WithoutSigpipe &) = delete;

    bool raised = false;

private:
    sigset_t pipeSignal, maskBefore;
    bool pendingBefore;
};

// Standard output, opened anew without blocking if it is a pipe or a terminal: O_NONBLOCK on the host's own
// descriptor would change it for the host. Opened for each write, since the host may redirect it at any time.
class ConsoleHandle
{
public:
    ConsoleHandle()
    {
        struct stat kind;
        if (fstat(STDOUT_FILENO, &kind) == 0 && (S_ISFIFO(kind.st_mode) || S_ISCHR(kind.st_mode)))
            opened = FileHandle(open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    }

    int number() const { return opened.isOpen() ? opened.descriptor() : STDOUT_FILENO; }

private:
    FileHandle opened;
};

bool waitWritable(int handle, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{handle, POLLOUT, 0};
        const int ready = poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) return (entry.revents & POLLOUT) != 0 && (entry.revents & (POLLERR | POLLNVAL)) == 0;
        if (ready == 0 || errno != EINTR) return false;
    }
}

} // namespace

std::string colourSequence(uint32_t number)
{
    struct Block
    {
        const char *Prefix;
        uint32_t Base;
    };
    static constexpr std::array<Block, 7> blocks{
        {{"0;", 30}, {"1;", 30}, {"4;", 30}, {"0;", 90}, {"1;", 90}, {"", 40}, {"0;", 100}}};
    if (number == 0) return "\033[0m";
    const uint32_t block = (number - 1) / 8;
    if (block >= blocks.size()) return {};
    return fmt::format("\033[{}{}m", blocks[block].Prefix, blocks[block].Base + (number - 1) % 8);
}

bool writeConsole(std::string_view text, std::chrono::milliseconds patience)
{
    if (!consoleThere.load(std::memory_order_relaxed)) return false;
    const int errorBefore = errno;
    WithoutSigpipe guard;
    const ConsoleHandle console;
    const auto deadline = Clock::now() + patience;
    // A pipe that is ready takes PIPE_BUF bytes at once, so even the host's own descriptor doesn't block.
    while (!text.empty() && waitWritable(console.number(), deadline)) {
        const ssize_t written = write(console.number(), text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR && errno != EAGAIN) {
            guard.raised = errno == EPIPE;
            break;
        } else if (Clock::now() >= deadline) {
            break;
        }
    }
    errno = errorBefore;
    return text.empty();
}

void lookForConsole()
{
    consoleThere = fcntl(STDOUT_FILENO, F_GETFD) != -1;
}

} // namespace Tessel
