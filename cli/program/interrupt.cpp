// The handler may run on any thread, and calls only what a handler may call.
#include "program/interrupt.h"

#include "program/output_file.h"

#include <atomic>
#include <cerrno>
#include <csignal>

namespace Tessel::Cli {

namespace {

std::atomic<bool> watching{false};
std::atomic<int> noted{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void onSignal(int signal)
{
    const int errorBefore = errno;
    const bool isRequest = signal == SIGINT || signal == SIGTERM;
    int none = 0;
    if (!isRequest || !watching || !noted.compare_exchange_strong(none, signal)) {
        removeWorkFiles();
        std::signal(signal, SIG_DFL);
        raise(signal); // is delivered when the handler returns
    }
    errno = errorBefore;
}

} // namespace

void catchSignals()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue; // so wished by what started the program
        struct sigaction action = {};
        action.sa_handler = onSignal;
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
}

InterruptWatch::InterruptWatch()
{
    noted = 0;
    watching = true;
}

InterruptWatch::~InterruptWatch()
{
    watching = false;
}

int interruptSignal()
{
    return noted.load();
}

int exitCodeOfSignal(int signal)
{
    return 128 + signal;
}

} // namespace Tessel::Cli
