// The handlers only store the signal's number, so they may run on any thread.
#include "program/interrupt.h"

#include <atomic>
#include <csignal>

namespace Tessel::Cli {

namespace {

std::atomic<int> noted{0};
static_assert(std::atomic<int>::is_always_lock_free);

void noteSignal(int signal)
{
    noted.store(signal);
}

void watch(int signal)
{
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_IGN) return; // so wished by what started the program
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART | SA_RESETHAND; // the next one has its usual effect
    sigaction(signal, &action, nullptr);
}

void forget(int signal)
{
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == noteSignal) std::signal(signal, SIG_DFL);
}

} // namespace

InterruptWatch::InterruptWatch()
{
    noted = 0;
    watch(SIGINT);
    watch(SIGTERM);
}

InterruptWatch::~InterruptWatch()
{
    forget(SIGINT);
    forget(SIGTERM);
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
