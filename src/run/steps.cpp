#include "run/steps.h"

#include "devices/acquisition.h"
#include "devices/families.h"
#include "devices/primitives.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "manipulators/chain.h"
#include "manipulators/store.h"
#include "measurements/measurement.h"
#include "measurements/publish.h"
#include "settings/system_ini.h"
#include "threads/losses.h"

#include <algorithm>
#include <limits>

namespace Tessel {

void failRun(const RunRef &ref, const char *what, const char *why) noexcept
{
    ref.context.Description.StopReason = StopReason::Error;
    abortRun(ref.context, *ref.run);
    logErr(LogCategory::General, "Device: {} failed: {} @{}", what, why, ref.device.ID);
}

void joinWatched(RunRef &ref, std::thread &thread, const std::atomic<bool> &done)
{
    if (!thread.joinable()) return;
    waitWatched(ref, [&done] { return done.load(); });
    thread.join();
}

namespace {

// Also sets how long the run is to last. Gives the control code that says so.
int32_t controlOf(RunRef &ref)
{
    const Device &device = ref.device;
    Run &run = *ref.run;
    const int32_t sequence = ref.context.SequenceMode;
    run.AcqTimeMs =
        static_cast<int32_t>(std::min<uint32_t>(run.Request.AcqTimeMs, std::numeric_limits<int32_t>::max()));
    const bool softwareStop = device.MeasControl == 6 || (device.MeasControl == 0 && sequence == 0);
    if (run.AcqTimeMs == 0 && stopsBySoftware(device) && softwareStop) return 6;
    const bool timedSequence = sequence == 1 && run.Facts.Mode == MeasMode::Histogramming;
    if (run.AcqTimeMs == 0 && !timedSequence) run.AcqTimeMs = Pace::longestAcquisitionMs;
    return device.MeasControl;
}

void decideMeasControl(RunRef &ref)
{
    Device &device = ref.device;
    LockedDevice locked(device);
    const int32_t control = device.MeasControl, startEdge = device.StartEdge, stopEdge = device.StopEdge;
    SetMeasControl(device, controlOf(ref), startEdge, stopEdge);
    remember(locked, [&] {
        device.MeasControl = control;
        device.StartEdge = startEdge;
        device.StopEdge = stopEdge;
    });
}

} // namespace

bool isLost(const RunRef &ref)
{
    return ref.run->Facts.IsLive && !ref.device.IsOpen;
}

bool endWith(RunRef &ref, StopReason reason)
{
    ref.context.Description.StopReason = reason;
    return true;
}

void tellFlag(RunRef &ref, StopReason reason, const char *text)
{
    endWith(ref, reason);
    reportDeviceError(ref.device, LogCategory::Device, "Device: {} @{}", text, ref.device.ID);
}

void prepareDevice(RunRef &ref)
{
    decideMeasControl(ref);
    if (!isLost(ref)) readCountRates(ref.device, ref.context);
    GetWarnings(ref.device, ref.context);
}

bool initResult(RunRef &ref)
{
    std::lock_guard lock(ref.context.ManisLock);
    ref.context.Description.NumRecs = 0; // the rest, as a recorded file gives it, stays
    ref.context.Description.AcqTime = ref.run->AcqTimeMs;
    return sizeResult(ref);
}

void addStore(RunRef &ref)
{
    Run &run = *ref.run;
    const std::string &id = ref.device.ID;
    auto record = addManisStore(ref.target, run);
    if (run.Request.Kind != MeasKind::Raw && run.Request.Kind != MeasKind::Unfold) {
        if (LogLevel.Manipulators)
            logInf(LogCategory::Progress, "AddManisStore: {} @{}", record->Index.load(), id);
        if (run.Facts.IsLive) waitFor(run.Control, Pace::settle, [&run] { return isAborted(run); });
        run.CopyStore = startThread(ref, "CopyStoreThread", run.CopyStoreDone, CopyStoreThread);
    }
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "store.size {} @{}", record->Events.Capacity, id);
}

bool initStore(RunRef &ref)
{
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "InitStore @{}", ref.device.ID);
    if (ref.run->Request.Kind != MeasKind::Raw && !allocateFinalStore(ref.target, *ref.run))
        return refuse(ref.device, "No memory for the final store!");
    std::lock_guard lock(ref.context.ManisLock);
    return makeWork(ref);
}

void beginMeasuring(RunRef &ref)
{
    if (auto last = lockLast(ref.context); last.record) last.record->StartedFlag = true;
    startLedger(*ref.run);
    advance(ref.context, *ref.run, RunPhase::Measuring);
}

void endInput(RunRef &ref)
{
    Run &run = *ref.run;
    if (!hasReached(run, RunPhase::Measuring)) run.Control.Aborted = true;
    advance(ref.context, run, RunPhase::InputDone);
}

void takeElapsedTime(RunRef &ref)
{
    if (!ref.run->Facts.IsLive || !ref.device.IsOpen) return;
    double elapsed = ref.context.Description.StopAfter;
    if (getElapsedMeasTime(ref.device, elapsed)) ref.context.Description.StopAfter = elapsed;
    LockedDevice locked(ref.device);
    if (ref.context.SequenceCount != 0 && ref.device.IsOpen)
        SetStopOverflow(ref.device, ref.context, ref.device.StopCount, false);
}

namespace {

void waitUntilLeft(RunRef &ref, const Manipulator &record)
{
    waitWatched(ref, [&record] { return hasLeft(record); });
}

} // namespace

void endStages(RunRef &ref)
{
    stopManipulators(ref.target, false, [&ref](Manipulator &record) { waitUntilLeft(ref, record); });
}

void endMeasurement(RunRef &ref)
{
    Run &run = *ref.run;
    advance(ref.context, run, RunPhase::ConsumersEnd);
    joinWatched(ref, run.Measurement, run.MeasurementDone);
    // From here on only CopyStoreThread writes to the caller's result.
    tellStoreGoes(ref.target);
    run.PublishingEnds = true;
    wake(run.Control);
    joinWatched(ref, run.CopyStore, run.CopyStoreDone); // it may wait for the host
    removeManisStore(ref.target);
    advance(ref.context, run, RunPhase::Closed);
    stopLatecomers(ref.target, [&ref](Manipulator &record) { waitUntilLeft(ref, record); });
}

} // namespace Tessel
