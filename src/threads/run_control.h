// How a run is moved on and ended, and how threads wait for it. A flag is set first; then whoever may wait for
// it is woken, with the lock of the wait taken in between. So no wait misses a flag.
#pragma once

#include "records/refs.h"

#include <chrono>
#include <memory>
#include <mutex>

namespace Tessel {

std::shared_ptr<Run> currentRun(MeasContext &context);
// The run of the device that isn't over; null: there is none.
std::shared_ptr<Run> liveRun(MeasContext &context);

inline bool hasReached(const Run &run, RunPhase phase)
{
    return run.Control.Phase >= phase;
}
// Stages and counters take part.
inline bool isMeasuring(const Run &run)
{
    const RunPhase phase = run.Control.Phase;
    return phase >= RunPhase::Measuring && phase < RunPhase::Closed;
}
inline bool isAborted(const Run &run)
{
    return run.Control.Aborted;
}

// The host has stopped the run, and the time is over in which what was read is still counted. Who counts with
// ManisLock looks at it, since MeasureThread may wait for that lock.
bool isTimeOver(const RunControl &control);

// Wakes who waits on the run's control. May be called under other locks.
void wake(RunControl &control);
void wake(Manipulator &record);
void wakeChain(MeasContext &context);
// The stages of other devices that take this run's events.
void wakeImporters(MeasContext &context, Run &run);
// Wakes every thread of the run and of the chain, whatever it waits for. No lock is held.
void wakeAll(MeasContext &context, Run &run);

// Moves the phase forward; never back. No lock is held.
void advance(MeasContext &context, Run &run, RunPhase phase);
// Ends the run at once, without draining. No lock is held.
void abortRun(MeasContext &context, Run &run);
// Ends the run when what was read is handed on. May be called under ManisLock.
void requestStop(Run &run);
// The same for the host, who waits for no consumer that sleeps and no stage at work: MeasureThread tells the
// chain.
void requestStopByHost(Run &run);

// The end of a batch has gone through the chain, or nobody takes it.
void noteBatchDone(Run &run);

int64_t monotonicNs();
// The run's consumer has taken something.
void noteTaken(Run &run);

// Waits until `isDone`, called with no lock held. Whoever changes what it looks at calls `wake`. False: not
// done by the deadline.
template <class Predicate>
bool waitUntil(RunControl &control, std::chrono::steady_clock::time_point deadline, Predicate isDone)
{
    for (;;) {
        const uint64_t seen = control.Wakes;
        if (isDone()) return true;
        std::unique_lock lock(control.Lock);
        if (!control.Changed.wait_until(lock, deadline, [&] { return control.Wakes != seen; })) break;
    }
    return isDone();
}
template <class Predicate>
bool waitFor(RunControl &control, std::chrono::milliseconds patience, Predicate isDone)
{
    return waitUntil(control, std::chrono::steady_clock::now() + patience, isDone);
}
template <class Predicate>
void waitFor(RunControl &control, Predicate isDone)
{
    for (;;) {
        const uint64_t seen = control.Wakes;
        if (isDone()) return;
        std::unique_lock lock(control.Lock);
        control.Changed.wait(lock, [&] { return control.Wakes != seen; });
    }
}

} // namespace Tessel
