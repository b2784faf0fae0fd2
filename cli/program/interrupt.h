// Signals that end the program. It never leaves a half-written file: work files go first. During a long step
// the first Ctrl-C (or TERM) is only noted, so that the step can end with what it has; the second one ends the
// program.
#pragma once

namespace Tessel::Cli {

// At the start of the program: INT, TERM, HUP, QUIT and PIPE, unless they are ignored.
void catchSignals();

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
