#include "pipeline/tttr_loop.h"

#include "devices/primitives.h"
#include "devices/result.h"
#include "pipeline/run_limits.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

namespace {

bool endWith(RunRef &run, StopReason reason)
{
    run.context().Description.StopReason = reason;
    return true;
}

// True: the device doesn't start.
bool startDevice(RunRef &ref)
{
    Run &run = *ref.run;
    run.StartPending = false;
    if (!StartMeasure(ref.device(), std::clamp(run.AcqTimeMs, 1, longestAcquisitionMs)))
        return endWith(ref, StopReason::SyncLost);
    ref.context().Description.AcqTime = run.AcqTimeMs;
    int32_t rate = 0;
    if (!getSyncRate(ref.device(), ref.context(), rate)) return endWith(ref, StopReason::Unknown);
    return false;
}

void stopDevice(RunRef &ref)
{
    if (!ref.run->StopIssued) StopMeasure(ref.device());
    ref.run->StopIssued = true;
}

// With ReadGate. True: the read failed.
bool readOnce(RunRef &ref)
{
    Run &run = *ref.run;
    uint64_t count = 0;
    if (run.ReadCount > streamRecords() - chunkWords) return false;
    if (!readFifo(ref.device(), ref.context(), run, count)) {
        StopMeasure(ref.device());
        return endWith(ref, StopReason::DataXferFail);
    }
    run.ReadCount += count;
    return false;
}

} // namespace

bool passTttrLoop(RunRef &ref, StallWatch &watch)
{
    MeasContext &context = ref.context();
    if (ref.run->StartPending && startDevice(ref)) return true;
    int32_t flags = 0, timerStatus = 0;
    if (!getFlags(ref.device(), flags)) return endWith(ref, StopReason::DataXferFail);
    if (!getCtcStatus(ref.device(), timerStatus)) return endWith(ref, StopReason::Unknown);

    while (!context.ReadGate.acquireFor(10ms)) {
        watch.turn();
        if (context.AbortRequested) return true;
    }
    bool wasStopped = ref.run->StopIssued;
    bool ended = context.StopRequested;
    if (ended) stopDevice(ref);
    // What a stopped instrument still holds is fetched; of a stopped file one chunk more is read and no other.
    if (!(wasStopped && isFile(ref.device())) && readOnce(ref)) ended = true;
    context.ReadGate.release();
    std::this_thread::sleep_for(1ms);
    return ended;
}

} // namespace Tessel
