#include "threads/run_control.h"

#include "threads/paces.h"

namespace Tessel {

namespace {

void notify(std::mutex &lock, std::condition_variable &changed)
{
    {
        std::lock_guard held(lock);
    }
    changed.notify_all();
}

} // namespace

std::shared_ptr<Run> currentRun(MeasContext &context)
{
    std::lock_guard lock(context.RunLock);
    return context.CurrentRun;
}

std::shared_ptr<Run> liveRun(MeasContext &context)
{
    auto run = currentRun(context);
    return run && !hasReached(*run, RunPhase::Over) ? run : nullptr;
}

void wake(RunControl &control)
{
    {
        std::lock_guard held(control.Lock);
        ++control.Wakes;
    }
    control.Changed.notify_all();
}

// The i-th of a list that others change; null after its end. Allocates nothing, since the end of a run calls
// it.
template <class Owner>
std::shared_ptr<Manipulator> at(std::mutex &lock, const Owner &list, size_t i)
{
    std::lock_guard held(lock);
    return i < list.size() ? list[i] : nullptr;
}

void wake(Manipulator &record)
{
    notify(record.Lock, record.Changed);
}

// From the last to the first: what is removed meanwhile moves others down, and none of them is passed over.
void wakeChain(MeasContext &context)
{
    size_t left = 0;
    {
        std::lock_guard pass(context.PipelineLock);
        left = context.Manis.size();
    }
    while (left-- > 0)
        if (auto record = at(context.PipelineLock, context.Manis, left)) wake(*record);
}

void wakeImporters(MeasContext &context, Run &run)
{
    for (size_t i = 0; auto record = at(context.ManisLock, run.Importers, i); ++i) {
        record->SourceChanged = true;
        wake(*record);
    }
}

void wakeAll(MeasContext &context, Run &run)
{
    wake(run.Control);
    notify(run.ReadGate, run.ReadChanged);
    notify(run.RawLock, run.RawTaken);
    notify(run.FileGate, run.FileChanged);
    notify(context.ManisLock, run.BlockTaken);
    wakeChain(context);
    wakeImporters(context, run);
}

void noteBatchDone(Run &run)
{
    ++run.BatchesDone;
    if (run.Facts.StopCount != 0) wake(run.Control); // nobody else waits for it
}

void noteTaken(Run &run)
{
    ++run.Taken;
    run.TakenAt = monotonicNs();
}

int64_t monotonicNs()
{
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

void advance(MeasContext &context, Run &run, RunPhase phase)
{
    // A run that was stopped in its set-up has its time for counting from here on.
    if (phase == RunPhase::Measuring && run.Control.StopByHost) run.Control.StoppedAt = monotonicNs();
    RunPhase before = run.Control.Phase;
    while (before < phase && !run.Control.Phase.compare_exchange_weak(before, phase)) {
    }
    wakeAll(context, run);
}

void abortRun(MeasContext &context, Run &run)
{
    run.Control.Aborted = true;
    wakeAll(context, run);
}

bool isTimeOver(const RunControl &control)
{
    constexpr int64_t counting = std::chrono::nanoseconds(Pace::counting).count();
    return control.StopByHost && monotonicNs() - control.StoppedAt > counting;
}

void requestStop(Run &run)
{
    run.Control.StopRequested = true;
    wake(run.Control);
    notify(run.ReadGate, run.ReadChanged);
}

void requestStopByHost(Run &run)
{
    if (!run.Control.StopByHost) run.Control.StoppedAt = monotonicNs();
    run.Control.StopByHost = true;
    requestStop(run);
}

} // namespace Tessel
