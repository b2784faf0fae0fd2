// Signals that end the program. It never leaves a half-written file: work files go first. During a long step
// the first Ctrl-C (or TERM) is only noted, so that the step can end with what it has; the second one ends the
// program. A picture on the terminal goes first, also for a stop by Ctrl-Z.
#pragma once

#include <chrono>

namespace Tessel::Cli {

// At the start of the program: INT, TERM, HUP, QUIT, PIPE and TSTP, unless they are ignored; XFSZ is ignored.
void catchSignals();

// What a step does when the terminal or the reader of its output is gone (HUP, PIPE).
enum class HangUp {
    EndsProgram, // it can be done again
    IsNoted,     // as Ctrl-C: an instrument's data don't come a second time
};

// While one lives, INT and TERM are noted.
struct InterruptWatch
{
    explicit InterruptWatch(HangUp hangUp = HangUp::EndsProgram);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch &) = delete;
    InterruptWatch &operator=(const InterruptWatch &) = delete;
};

// The signal that was noted, or 0.
int interruptSignal();

// Waits this long, or until a signal is noted.
void restUntilSignal(std::chrono::milliseconds most);

// The exit code that a shell expects of a program that a signal stopped.
int exitCodeOfSignal(int signal);

} // namespace Tessel::Cli
