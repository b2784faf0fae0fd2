// Signals that end the program. It never leaves a half-written file: work files go first. During a long step
// the first Ctrl-C (or TERM, or a terminal or reader that is gone) is only noted, so that the step can end with
// what it has; the second one ends the program. A picture on the terminal goes first, also for a stop by
// Ctrl-Z.
#pragma once

namespace Tessel::Cli {

// At the start of the program: INT, TERM, HUP, QUIT, PIPE and TSTP, unless they are ignored.
void catchSignals();

// While one lives, INT, TERM, HUP and PIPE are noted.
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
