// The handler may run on any thread, and calls only what a handler may call.
#include "program/interrupt.h"

#include "program/output_file.h"
#include "program/terminal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>

namespace Tessel::Cli {

namespace {

std::atomic<bool> watching{false}, watchingHangUp{false};
std::atomic<int> noted{0};
const int wakeUp = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); // readable once a signal is noted
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

// True: the step that goes on will end. Each write to a reader that is gone brings its signal again.
bool isNoted(int signal)
{
    int before = 0;
    const bool isHangUp = signal == SIGHUP || signal == SIGPIPE;
    if (signal == SIGQUIT || !(isHangUp ? watchingHangUp : watching)) return false;
    if (!noted.compare_exchange_strong(before, signal)) return signal == SIGPIPE;
    eventfd_write(wakeUp, 1);
    return true;
}

void onSignal(int signal)
{
    const int errorBefore = errno;
    if (!isNoted(signal)) {
        leaveScreen();
        removeWorkFiles();
        std::signal(signal, SIG_DFL);
        raise(signal); // is delivered when the handler returns
    }
    errno = errorBefore;
}

void onStop(int)
{
    const int errorBefore = errno;
    const bool wasShown = leaveScreen();
    raise(SIGSTOP);
    if (wasShown) enterScreen(); // the user has let the program go on
    errno = errorBefore;
}

void handle(int signal, void (*handler)(int))
{
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_IGN) return; // so wished by what started the program
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

} // namespace

void catchSignals()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) handle(signal, onSignal);
    handle(SIGTSTP, onStop);
    std::signal(SIGXFSZ, SIG_IGN); // a file at its limit is an error of that write
}

InterruptWatch::InterruptWatch(HangUp hangUp)
{
    eventfd_t old;
    eventfd_read(wakeUp, &old);
    noted = 0;
    watchingHangUp = hangUp == HangUp::IsNoted;
    watching = true;
}

InterruptWatch::~InterruptWatch()
{
    watching = watchingHangUp = false;
}

int interruptSignal()
{
    return noted.load();
}

void restUntilSignal(std::chrono::milliseconds most)
{
    pollfd waited = {.fd = wakeUp, .events = POLLIN, .revents = 0};
    if (interruptSignal() == 0) poll(&waited, 1, static_cast<int>(most.count()));
}

int exitCodeOfSignal(int signal)
{
    return 128 + signal;
}

} // namespace Tessel::Cli
