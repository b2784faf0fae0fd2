#include "measurements/publish.h"

#include "log/log.h"
#include "measurements/clear.h"
#include "measurements/measurement.h"
#include "settings/system_ini.h"
#include "threads/paces.h"
#include "threads/run_control.h"
#include "threads/thread_name.h"

namespace Tessel {

namespace {

// False: there is nothing new.
bool takeNewData(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.NewData || !isMeasuring(run) || !hasResult(run)) return false;
    std::lock_guard lock(ref.context.ManisLock);
    // The other publisher may have been first: then only what was counted since then is new.
    if (!run.NewData.exchange(false)) return false;
    giveOutResult(run);
    return true;
}

void waitForHost(Run &run)
{
    run.NewDataWait = true;
    wake(run.Control);
    waitFor(run.Control, [&run] { return !run.NewDataWait || isAborted(run); });
}

} // namespace

bool isPublishedByCounter(const MeasContext &context, const Run &run)
{
    return context.SequenceMode != 0 ? context.SequenceWait.load() : run.PublishesByBatch;
}

void newDataStep(RunRef &ref)
{
    MeasContext &context = ref.context;
    if (!takeNewData(ref)) return;
    if (context.SequenceMode != 0 && context.SequenceWait) waitForHost(*ref.run);
    ref.run->LastPublish = monotonicNs();
}

void publish(RunRef &ref, std::unique_lock<std::mutex> &manis)
{
    ref.run->NewData = true;
    manis.unlock();
    newDataStep(ref);
    if (ref.context.SequenceMode != 0) clearResult(ref.target, *ref.run);
    manis.lock();
}

void dropRest(RunRef &ref)
{
    Run &run = *ref.run;
    const bool isHosts = !hasResult(run) || run.NewDataWait;
    if (!run.Control.Aborted.exchange(true))
        logWrn(LogCategory::General, "Device: {} of a stopped measurement, the rest is dropped! @{}",
               isHosts ? "Nobody takes the data" : "The time is over for the data", ref.device.ID);
    abortRun(ref.context, run);
}

void CopyStoreThread(RunRef ref)
{
    Run &run = *ref.run;
    nameThread(ref.device.ID);
    waitFor(run.Control, [&run] { return run.PublishingEnds || isMeasuring(run); });
    if (LogLevel.Api) logInf(LogCategory::Progress, "CopyStoreThread started @{}", ref.device.ID);
    while (!run.PublishingEnds) {
        if (!isPublishedByCounter(ref.context, run)) newDataStep(ref);
        waitFor(run.Control, Pace::publish, [&run] { return run.PublishingEnds.load(); });
        waitFor(run.Control,
                [&] { return run.PublishingEnds || (run.NewData && !isPublishedByCounter(ref.context, run)); });
    }
    if (LogLevel.Api) logInf(LogCategory::Progress, "CopyStoreThread stopped @{}", ref.device.ID);
}

} // namespace Tessel
