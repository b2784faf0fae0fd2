// Ctrl-C during a long step: the first one is noted, the second one ends the program at once.
#pragma once

namespace Tessel::Cli {

// While one lives, SIGINT and SIGTERM are noted.
struct InterruptWatch
{
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch &) = delete;
    InterruptWatch &operator=(const InterruptWatch &) = delete;
};

// The signal that was noted, or 0.
int interruptSignal();

// The exit code that a shell expects of a program that a signal stopped.
int exitCodeOfSignal(int signal);

} // namespace Tessel::Cli
