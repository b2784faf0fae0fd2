#include "pipeline/measure_thread.h"

#include "devices/families.h"
#include "devices/file_answers.h"
#include "devices/primitives.h"
#include "devices/result.h"
#include "devices/thread_name.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/store.h"
#include "measurements/frame.h"
#include "measurements/publish.h"
#include "measurements/results.h"
#include "measurements/threads.h"
#include "pipeline/process_thread.h"
#include "pipeline/run_limits.h"
#include "pipeline/stall_watch.h"
#include "pipeline/tttr_loop.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

namespace {

constexpr int manipulatorStartTurns = 1000; // of 10 ms

void decideMeasControl(RunRef &ref)
{
    Device &device = ref.device();
    Run &run = *ref.run;
    int32_t sequence = ref.context().SequenceMode;
    run.AcqTimeMs =
        static_cast<int32_t>(std::min<uint32_t>(run.Request.AcqTimeMs, std::numeric_limits<int32_t>::max()));
    bool softwareStop = device.MeasControl == 6 || (device.MeasControl == 0 && sequence == 0);
    if (run.AcqTimeMs == 0 && stopsBySoftware(device) && softwareStop) {
        SetMeasControl(device, 6, device.StartEdge, device.StopEdge);
        return;
    }
    SetMeasControl(device, device.MeasControl, device.StartEdge, device.StopEdge);
    bool timedSequence = sequence == 1 && device.MeasMode == MeasMode::Histogramming;
    if (run.AcqTimeMs == 0 && !timedSequence) run.AcqTimeMs = longestAcquisitionMs;
}

bool allocateBuffers(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.ReadBuffer.allocate(streamRecords()) || !run.ProcessBuffer.allocate(streamRecords()) ||
        !allocateManipulators(ref.target))
        return refuse(ref.device(), "No memory for the stream buffers!");
    return true;
}

// Also for a run that can't measure: the host finds an empty result, not that of the run before.
bool initResult(RunRef &ref)
{
    MeasContext &context = ref.context();
    std::scoped_lock lock(context.ManisLock, library().ResultLock);
    context.Description.NumRecs = 0; // what else a recorded file tells of its run stays
    context.Description.AcqTime = ref.run->AcqTimeMs;
    return sizeResult(ref);
}

bool initStore(RunRef &ref)
{
    MeasContext &context = ref.context();
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "InitStore @{}", ref.device().ID);
    if (ref.run->Request.Kind != MeasKind::Raw && !allocateFinalStore(ref.target))
        return refuse(ref.device(), "No memory for the final store!");
    std::lock_guard lock(context.ManisLock);
    return makeWork(ref);
}

void failRun(const RunRef &ref, const char *what, const char *why) noexcept
{
    ref.context().AbortRequested = true;
    try {
        logErr(LogCategory::General, "Device: {} failed: {} @{}", what, why, ref.device().ID);
    } catch (...) { // not even memory for the line
    }
}

// A thread of the run that fails takes the run with it, and nothing else.
template <class Body>
std::thread startThread(const RunRef &ref, const char *name, std::atomic<bool> &done, Body body)
{
    return std::thread([ref, name, &done, body]() mutable {
        try {
            body(ref);
        } catch (const std::exception &failure) {
            failRun(ref, name, failure.what());
        }
        done = true;
    });
}

void startConsumers(RunRef &ref)
{
    Run &run = *ref.run;
    switch (run.Request.Kind) {
    case MeasKind::Histogram:
        run.Measurement = startThread(ref, "HistoThread", run.MeasurementDone, HistoThread);
        break;
    case MeasKind::Correlation:
        run.Measurement = startThread(ref, "CorrThread", run.MeasurementDone, CorrThread);
        break;
    case MeasKind::Histo2d:
        run.Measurement = startThread(ref, "Histo2dThread", run.MeasurementDone, Histo2dThread);
        break;
    case MeasKind::TimeTrace:
        run.Measurement = startThread(ref, "TimeTraceThread", run.MeasurementDone, TimeTraceThread);
        break;
    case MeasKind::Unfold:
    case MeasKind::ImportSource:
        run.Measurement = startThread(ref, "UnfoldThread", run.MeasurementDone, UnfoldThread);
        break;
    default: run.MeasurementDone = true; break;
    }
    run.Process = startThread(ref, "ProcessThread", run.ProcessDone, ProcessThread);
}

// False: a stage hasn't entered the run in time.
bool waitManipulators(RunRef &ref)
{
    auto isWaitedFor = [](const auto &record) { return record->Enabled && !record->StartedFlag; };
    std::vector<std::shared_ptr<Manipulator>> chain;
    auto willNotStart = [&](const auto &record) { return isWaitedFor(record) && record->ThreadGone; };
    // Its source may be long in coming; the other stages come by themselves.
    auto isImport = [&](const auto &record) {
        return isWaitedFor(record) && record->Type == ManisType::ImportStream;
    };
    for (int turn = 1; turn <= manipulatorStartTurns; ++turn) {
        chain = chainOf(ref.context());
        bool allStarted = std::none_of(chain.begin(), chain.end(), isWaitedFor);
        std::this_thread::sleep_for(10ms);
        if (allStarted || ref.context().AbortRequested) return allStarted;
        if (ref.context().StopByHost && std::any_of(chain.begin(), chain.end(), isImport)) return false;
        if (std::any_of(chain.begin(), chain.end(), willNotStart)) break;
    }
    const std::string &id = ref.device().ID;
    auto late = std::find_if(chain.begin(), chain.end(), isWaitedFor);
    if (late == chain.end())
        reportDeviceError(LogCategory::General, "Device: Could not start unknown manipulator @{}", id);
    else if ((*late)->Type == ManisType::ImportStream)
        reportDeviceError(
            LogCategory::General,
            "Device: Could not start manipulator: {} @{}.\nThat means the Measurement of {} was never "
            "running or the manipulator never received any data.",
            (*late)->Name, id, (*late)->SourceId);
    else
        reportDeviceError(LogCategory::General, "Device: Could not start manipulator: {} @{}", (*late)->Name,
                          id);
    return false;
}

// False: the run fails before it reads anything.
bool setUp(RunRef &ref)
{
    Device &device = ref.device();
    MeasContext &context = ref.context();
    bool isStreamRun = isStream(device.MeasMode);

    decideMeasControl(ref);
    readCountRates(device, context);
    if (isFile(device)) openFileInput(device, *ref.run); // where it fails the first read tells
    if (!initResult(ref) || !checkParams(ref)) return false;
    if (isStreamRun && !allocateBuffers(ref)) return false;
    addManisStore(ref.target, *ref.run, [&ref](std::shared_ptr<Manipulator> record) {
        ref.run->CopyStore = startThread(ref, "CopyStoreThread", ref.run->CopyStoreDone,
                                         [record](RunRef run) { CopyStoreThread(run, record); });
    });
    if (!initStore(ref)) return false;
    if (isStreamRun) startConsumers(ref);
    context.Measuring = true;
    // From here on every stage takes part in the run.
    if (auto last = lockLast(context); last.record) last.record->StartedFlag = true;
    return !isStreamRun || waitManipulators(ref);
}

// Only an instrument builds histograms by itself, and no instrument is bound.
void refuseHistogramming(RunRef &ref)
{
    if (ref.run->Request.Kind != MeasKind::Histogram) {
        reportDeviceError(LogCategory::General, "Device: Measurement not supported histogram mode! @{}",
                          ref.device().ID);
        return;
    }
    notSupported(ref.device(), "getHistogram");
    ref.context().Description.StopReason = StopReason::DataXferFail;
}

bool wordsWait(RunRef &ref)
{
    if (!acquireReadGate(ref.context())) return false;
    bool wait = ref.run->ReadCount > 0;
    ref.context().ReadGate.release();
    return wait;
}

void readRecords(RunRef &ref, StallWatch &watch)
{
    MeasContext &context = ref.context();
    if (!isStream(ref.device().MeasMode)) return refuseHistogramming(ref);
    bool ended = false;
    for (;;) {
        if (context.AbortRequested || ref.device().Index == -1) return;
        ended = passTttrLoop(ref, watch) || ended;
        watch.turn();
        if (ended && !wordsWait(ref)) return;
    }
}

void joinWatching(std::thread &thread, const std::atomic<bool> &done, StallWatch &watch)
{
    if (!thread.joinable()) return;
    while (!done) {
        watch.turn();
        std::this_thread::sleep_for(1ms);
    }
    thread.join();
}

void tearDown(RunRef &ref, StallWatch &watch)
{
    Device &device = ref.device();
    MeasContext &context = ref.context();
    Run &run = *ref.run;
    auto everyTurn = [&watch] { watch.turn(); };

    context.InputDone = true;
    if (LogLevel.Api)
        logInf(LogCategory::Progress, "{} finished @{}",
               device.MeasMode == MeasMode::Histogramming ? "MeasureHistory" : "MeasureTTTR", device.ID);
    context.StopRequested = true;
    joinWatching(run.Process, run.ProcessDone, watch);
    // From here on nobody appends to the first store.
    stopManipulators(ref.target, false, everyTurn);
    if (LogLevel.Api && device.MeasMode != MeasMode::Histogramming)
        logInf(LogCategory::Progress, "stop measurement {} @{}", static_cast<uint32_t>(run.Request.Kind),
               device.ID);
    context.ConsumersEnd = true;
    joinWatching(run.Measurement, run.MeasurementDone, watch);
    // From here on nobody writes to the caller's result.
    removeManisStore(ref.target, run, everyTurn);
    closeFileInput(run);
    context.Measuring = false;
    stopLatecomers(ref.target, everyTurn);
}

void announceOver(Run &run)
{
    std::lock_guard lock(run.OverLock);
    run.Over = true;
    run.OverSignal.notify_all();
}

// False: the step has failed, and the run is aborted.
template <class Step>
bool guarded(const RunRef &ref, Step step)
{
    try {
        step();
        return true;
    } catch (const std::exception &failure) {
        failRun(ref, "The measurement", failure.what());
        return false;
    }
}

} // namespace

void writeFinished(uint8_t *finished, uint8_t value)
{
    if (finished) std::atomic_ref<uint8_t>(*finished).store(value, std::memory_order_release);
}

void writeFinished(Run &run, uint8_t value)
{
    writeFinished(run.Request.FinishedFlag, value);
    run.Finished = value != 0;
}

void MeasureThread(RunRef ref)
{
    Run &run = *ref.run;
    StallWatch watch(ref);
    guarded(ref, [&] {
        if (LogLevel.Api) logInf(LogCategory::Progress, "MeasureThread started @{}", ref.device().ID);
        nameThread(ref.device());
        if (setUp(ref)) readRecords(ref, watch);
    });
    // Every step of it can be done twice, and none may be left out.
    while (!guarded(ref, [&] { tearDown(ref, watch); })) std::this_thread::sleep_for(10ms);
    writeFinished(run, 1);
    run.ReadBuffer.free();
    run.ProcessBuffer.free();
    guarded(ref, [&] {
        if (LogLevel.Api) logInf(LogCategory::Progress, "MeasureThread finished @{}", ref.device().ID);
    });
    announceOver(run);
}

} // namespace Tessel
