#include "run/end_run.h"

#include "log/log.h"
#include "threads/paces.h"
#include "threads/run_control.h"

namespace Tessel {

bool waitOver(Run &run, std::chrono::milliseconds patience)
{
    return waitFor(run.Control, patience, [&run] { return hasReached(run, RunPhase::Over); });
}

namespace {

// A stopped run hands on what it has read, as long as that moves, and for a limited time. Its first events take
// longer, since they pass the whole chain.
bool drains(Run &run)
{
    const auto deadline = std::chrono::steady_clock::now() + Pace::draining;
    uint64_t taken = 0;
    do {
        taken = run.Taken;
        if (waitOver(run, taken == 0 ? Pace::firstBatch : Pace::nextBatch)) return true;
    } while (run.Taken != taken && std::chrono::steady_clock::now() < deadline);
    return false;
}

} // namespace

bool endRun(const DeviceRef &target, std::chrono::milliseconds patience)
{
    MeasContext &context = target->context;
    auto run = liveRun(context);
    if (!run) return true;
    if (!hasReached(*run, RunPhase::Finished)) {
        context.Description.StopReason = StopReason::Manual;
        requestStopByHost(*run);
    }
    if (patience >= Pace::firstBatch && drains(*run)) return true;
    abortRun(context, *run);
    if (waitOver(*run, patience)) return true;
    logErr(LogCategory::General, "Device: The measurement can't be stopped, its memory is left to it! @{}",
           target->device.ID);
    return false;
}

} // namespace Tessel
