// The waits of MeasureThread for the other threads of its run.
#pragma once

#include "log/log.h"
#include "records/refs.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <chrono>

namespace Tessel {

// Waits until `isDone`. If the host has stopped the run and its consumer takes nothing for some seconds, the
// run is aborted, so every such wait ends.
template <class Predicate>
void waitWatched(RunRef &ref, Predicate isDone)
{
    Run &run = *ref.run;
    RunControl &control = run.Control;
    auto isWatched = [&control] { return control.StopByHost && !control.Aborted; };
    for (;;) {
        waitFor(control, [&] { return isDone() || isWatched(); });
        wakeChain(ref.context); // imports don't wait for their source any more
        const int64_t moved = std::max(control.StoppedAt.load(), run.TakenAt.load());
        const std::chrono::steady_clock::time_point deadline{std::chrono::nanoseconds(moved) +
                                                             Pace::consumerTakes};
        if (waitUntil(control, deadline, [&] { return isDone() || !isWatched(); })) {
            if (isDone()) return;
            continue; // aborted: nothing is to be watched any more
        }
        if (run.TakenAt > moved) continue; // it moves
        logWrn(LogCategory::General,
               "Device: Nobody takes the data of a stopped measurement, the rest is dropped! @{}",
               ref.device.ID);
        abortRun(ref.context, run);
    }
}

} // namespace Tessel
