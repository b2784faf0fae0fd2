// The waits of MeasureThread for the other threads of its run.
#pragma once

#include "measurements/measurement.h"
#include "measurements/publish.h"
#include "records/refs.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <chrono>

namespace Tessel {

// When a run that the host has stopped has had its time, if nothing more is taken: what was read is counted for
// a moment only, but who fetches blocks may go on as long as he does.
inline int64_t deadlineOfStopped(const Run &run)
{
    const int64_t stopped = run.Control.StoppedAt;
    if (hasResult(run)) return stopped + std::chrono::nanoseconds(Pace::counting).count();
    return std::max(stopped, run.TakenAt.load()) + std::chrono::nanoseconds(Pace::consumerTakes).count();
}

// Waits until `isDone`. If the host has stopped the run, it is aborted after its time; so every such wait ends.
template <class Predicate>
void waitWatched(RunRef &ref, Predicate isDone)
{
    Run &run = *ref.run;
    RunControl &control = run.Control;
    auto isWatched = [&control] { return control.StopByHost && !control.Aborted; };
    for (;;) {
        waitFor(control, [&] { return isDone() || isWatched(); });
        wakeChain(ref.context); // imports don't wait for their source any more
        const int64_t deadline = deadlineOfStopped(run);
        if (waitUntil(control, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(deadline)),
                      [&] { return isDone() || !isWatched(); })) {
            if (isDone()) return;
            continue; // aborted: nothing is to be watched any more
        }
        if (deadlineOfStopped(run) > deadline) continue; // it moves
        dropRest(ref);
    }
}

} // namespace Tessel
