#include "run/stream_run.h"

#include "devices/acquisition.h"
#include "devices/primitives.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "devices/source.h"
#include "manipulators/chain.h"
#include "manipulators/store.h"
#include "measurements/measurement.h"
#include "run/file_writer.h"
#include "run/live_read.h"
#include "run/process_thread.h"
#include "run/side_by_side.h"
#include "run/steps.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"

#include <algorithm>

namespace Tessel {

namespace {

bool allocateBuffers(RunRef &ref)
{
    Run &run = *ref.run;
    const uint64_t words = run.Facts.MayWait ? chunkWords : streamRecords();
    if (!allocatePages(run.ReadBuffer, words) || !allocatePages(run.ProcessBuffer, words) ||
        !allocatePages(run.FillBuffer, run.Facts.IsLive ? words : 0) || !allocateManipulators(ref.target, run))
        return refuse(ref.device, "No memory for the stream buffers!");
    return true;
}

void startConsumers(RunRef &ref)
{
    Run &run = *ref.run;
    if (const MeasurementThread thread = threadOf(run); thread.Body)
        run.Measurement = startThread(ref, thread.Name, run.MeasurementDone, thread.Body);
    else
        run.MeasurementDone = true;
    run.Process = startThread(ref, "ProcessThread", run.ProcessDone, ProcessThread);
}

bool isAwaited(const Manipulator &record)
{
    return record.Enabled && !record.StartedFlag;
}

// Logs which stage hasn't entered the run in time, and why.
void tellLateStage(const RunRef &ref)
{
    const std::string &id = ref.device.ID;
    auto chain = chainOf(ref.context);
    auto late = std::find_if(chain.begin(), chain.end(), [](const auto &record) { return isAwaited(*record); });
    if (late == chain.end())
        reportDeviceError(ref.device, LogCategory::General, "Device: Could not start unknown manipulator @{}",
                          id);
    else if ((*late)->Type == ManisType::ImportStream)
        reportDeviceError(
            ref.device, LogCategory::General,
            "Device: Could not start manipulator: {} @{}.\nThat means the Measurement of {} was never "
            "running or the manipulator never received any data.",
            (*late)->Name, id, (*late)->SourceId);
    else
        reportDeviceError(ref.device, LogCategory::General, "Device: Could not start manipulator: {} @{}",
                          (*late)->Name, id);
}

// Looks at the chain as it is now: stages may come and go meanwhile.
template <class Condition>
bool anyRecord(MeasContext &context, Condition condition)
{
    for (size_t i = 0; auto record = recordAt(context, i); ++i)
        if (condition(*record)) return true;
    return false;
}

// False: a stage hasn't entered the run in time, or the run ends before.
bool waitManipulators(RunRef &ref)
{
    RunControl &control = ref.run->Control;
    auto areIn = [&] { return !anyRecord(ref.context, isAwaited); };
    auto isLost = [&] {
        return ref.context.Removals == 0 && anyRecord(ref.context, [](const auto &record) {
                   return isAwaited(record) && record.ThreadGone;
               });
    };
    // An import may wait long for its source; the other stages enter by themselves.
    auto isGivenUp = [&] {
        return control.StopByHost && anyRecord(ref.context, [](const auto &record) {
                   return isAwaited(record) && record.Type == ManisType::ImportStream;
               });
    };
    auto isOver = [&] { return control.Aborted || areIn() || isLost() || isGivenUp(); };
    waitFor(control, Pace::stagesEnter, isOver);
    if (control.Aborted || areIn()) return areIn();
    if (isLost() || !isGivenUp()) tellLateStage(ref);
    return false;
}

// False: the run is refused.
bool setUpStream(RunRef &ref)
{
    prepareDevice(ref);
    if (!initResult(ref) || !checkParams(ref) || !allocateBuffers(ref)) return false;
    addStore(ref);
    if (!initStore(ref)) return false;
    startConsumers(ref);
    beginFile(ref);
    beginMeasuring(ref);
    return true;
}

// True: the device doesn't start.
bool startDevice(RunRef &ref, RecordSource &source)
{
    Run &run = *ref.run;
    if (isLost(ref)) return endWith(ref, StopReason::DataXferFail);
    if (!startSource(source, ref.device, std::clamp(run.AcqTimeMs, 1, Pace::longestAcquisitionMs)))
        return endWith(ref, StopReason::SyncLost);
    ref.context.Description.AcqTime = run.AcqTimeMs;
    int32_t rate = 0;
    if (!getSyncRate(ref.device, ref.context, rate)) return endWith(ref, StopReason::Unknown);
    return !takeSyncPeriod(ref, rate);
}

// Waits until ProcessThread has taken the words, or the run is to end.
void waitTaken(RunRef &ref)
{
    Run &run = *ref.run;
    std::unique_lock gate(run.ReadGate);
    run.ReadChanged.wait(gate,
                         [&run] { return run.ReadCount == 0 || run.Control.StopRequested || isAborted(run); });
}

// What is read of a recorded file mustn't depend on how fast it is counted, so under a stop count no batch is
// read before the one that it may stop.
void waitCounted(RunRef &ref)
{
    Run &run = *ref.run;
    const bool countsToStop = run.Request.Kind == MeasKind::Histogram || run.Request.Kind == MeasKind::Histo2d;
    if (run.Facts.StopCount == 0 || !countsToStop) return;
    waitFor(run.Control, [&run] {
        return run.BatchesDone >= run.BatchesRead || run.LosesEndsOfBatches || run.Control.StopRequested ||
               isAborted(run);
    });
}

// Flags and timer. True: the run ends.
bool askInstrument(RunRef &ref, RecordSource &source)
{
    int32_t flags = 0;
    if (isLost(ref) || !getFlags(ref.device, flags, true)) return endWith(ref, StopReason::DataXferFail);
    const bool isLost = tellFlags(ref, flags);
    if (!getCtcStatus(ref.device, source.TimerStatus, true)) return endWith(ref, StopReason::Unknown);
    return (timerRanOut(source) && readLastWords(ref, source)) || isLost;
}

// One pass. True: nothing more is to be read.
bool passTttrLoop(RunRef &ref, RecordSource &source)
{
    Run &run = *ref.run;
    if (!source.Started) {
        if (startDevice(ref, source)) return true;
        countSideBySide(ref, source);
    }
    const bool wasStopped = source.Stopped;
    bool ended = !wasStopped && askInstrument(ref, source);
    ended = ended || run.Control.StopRequested;
    if (ended) stopSource(source, ref.device);
    // What a stopped instrument still has is fetched. Of a stopped file one more chunk is read.
    if (wasStopped && run.Facts.MayWait) return true;
    const Reading reading = readWords(ref, source);
    if (reading.Failed) {
        stopSource(source, ref.device);
        ended = endWith(ref, StopReason::DataXferFail);
    }
    if (reading.AtEnd) requestStop(run);
    if (reading.IsFull && run.Facts.IsLive) dropWaiting(ref);
    if (!run.Facts.MayWait && !reading.HasMore)
        waitFor(run.Control, Pace::instrumentPass, [&run] { return isAborted(run); });
    else if (run.Facts.MayWait && reading.IsFull)
        waitTaken(ref);
    if (run.Facts.MayWait && reading.Words > 0) {
        ++run.BatchesRead;
        waitCounted(ref);
    }
    return ended;
}

void readRecords(RunRef &ref, RecordSource &source)
{
    Run &run = *ref.run;
    for (bool ended = false; !isAborted(run) && ref.device.Index != -1;) {
        ended = passTttrLoop(ref, source) || ended;
        if (ended && (run.Facts.MayWait || !wordsWait(run))) return;
    }
    handOverRest(run);
}

void tearDownStream(RunRef &ref)
{
    Run &run = *ref.run;
    endInput(ref);
    if (LogLevel.Api) logInf(LogCategory::Progress, "MeasureTTTR finished @{}", ref.device.ID);
    attempt(ref, [&] {
        takeElapsedTime(ref);
        if (run.Facts.IsLive && ref.device.IsOpen) GetStartTime(ref.device, ref.context);
    });
    requestStop(run);
    joinWatched(ref, run.Process, run.ProcessDone);
    // From here on nobody writes to the first store, and no word comes for the file.
    attempt(ref, [&ref] { endWriting(ref); });
    endStages(ref);
    if (LogLevel.Api)
        logInf(LogCategory::Progress, "stop measurement {} @{}", static_cast<uint32_t>(run.Request.Kind),
               ref.device.ID);
    endMeasurement(ref);
    attempt(ref, [&ref] { closeFile(ref); });
}

} // namespace

void runStream(RunRef &ref)
{
    attempt(ref, [&ref] {
        RecordSource source = openSource(ref.device);
        if (!setUpStream(ref))
            ref.context.Description.StopReason = StopReason::Error;
        else if (waitManipulators(ref)) // a stage that doesn't come leaves the stop reason: hosts know it so
            readRecords(ref, source);
    });
    tearDownStream(ref);
}

} // namespace Tessel
