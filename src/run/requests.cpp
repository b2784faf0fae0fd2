#include "run/requests.h"

#include "devices/primitives.h"
#include "devices/result.h"
#include "devices/source.h"
#include "manipulators/chain.h"
#include "measurements/measurement.h"
#include "run/end_run.h"
#include "run/file_writer.h"
#include "run/finished.h"
#include "run/import_sources.h"
#include "run/measure_thread.h"
#include "run/params.h"
#include "settings/system_ini.h"
#include "stream/rounding.h"
#include "threads/run_control.h"

#include <thread>
#include <utility>

namespace Tessel {

namespace {

std::shared_ptr<Run> makeRun(const DeviceRef &target, const RunRequest &request, const DeviceLookUp &devices)
{
    const Device &device = target->device;
    return std::shared_ptr<Run>(new Run{.Request = request,
                                        .Params = paramsOf(target->context),
                                        .Devices = &devices,
                                        .Facts = factsOf(device),
                                        .NumRows = numAllChans(device, target->context),
                                        .NumBins = valueOf(device, &DeviceConfig::NumBins),
                                        .Threads = countingThreads(),
                                        .Result = resultOf(request)});
}

// The run ends without having begun.
void endBeforeBegin(MeasContext &context, Run &run)
{
    finish(context, run);
    advance(context, run, RunPhase::Over);
}

// A run on an instrument has a description of its own; a recorded file keeps what it gave.
void resetDescription(MeasDescription &description)
{
    const MeasDescription fresh;
    description.AveSyncRate = fresh.AveSyncRate.load();
    description.AveSyncPeriod = fresh.AveSyncPeriod.load();
    description.StopReason = fresh.StopReason.load();
    description.StopAfter = fresh.StopAfter.load();
    description.WarningsFlag = fresh.WarningsFlag.load();
    description.StartWords = fresh.StartWords;
    description.StartTime = fresh.StartTime;
}

void begin(const DeviceRef &target, const std::shared_ptr<Run> &run)
{
    std::shared_ptr<Run> before;
    {
        std::lock_guard lock(target->context.RunLock);
        before = std::exchange(target->context.CurrentRun, run);
    }
    if (before) wakeImporters(target->context, *before); // they go on with the new run
    try {
        std::thread(MeasureThread, RunRef{target, run}).detach();
    } catch (...) {
        endBeforeBegin(target->context, *run);
        throw;
    }
}

std::shared_ptr<Run> commonStart(const DeviceRef &target, const RunRequest &request,
                                 const DeviceLookUp &devices)
{
    MeasContext &context = target->context;
    std::lock_guard oneStart(context.StartLock);
    writeFinished(request.FinishedFlag, 0);
    const bool free = endRun(target); // first: from here on nobody writes to the caller's arrays
    auto run = makeRun(target, request, devices);
    beginResult(*run);
    writeFinished(request.FinishedFlag, 0); // again: the run before may have had the same byte
    if (!free) {                            // the run that can't be stopped keeps the device
        endBeforeBegin(context, *run);
    } else if (target->device.Index < 0 || !isReady(target->device) || context.Closed) {
        reportDeviceError(target->device, LogCategory::General,
                          "Device: Can't do a measurement on a invalid device! @{}", target->device.ID);
        endBeforeBegin(context, *run);
    } else {
        if (run->Facts.IsLive) resetDescription(context.Description); // before anybody can stop the run
        makeFile(target, *run);
        begin(target, run);
    }
    return run;
}

// A start under way. Import sources look at it: they run before the run that they are for.
class Start
{
public:
    explicit Start(MeasContext &starting) : context(starting) { ++context.Starts; }
    ~Start() { --context.Starts; }
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;

private:
    MeasContext &context;
};

std::shared_ptr<Run> prepareAndStart(const DeviceRef &target, const RunRequest &request,
                                     const DeviceLookUp &devices)
{
    const Start start(target->context);
    if (request.PrepareImports) prepareImportSources(target, devices);
    return commonStart(target, request, devices);
}

} // namespace

RunRequest requestOf(MeasKind kind, const Device &device, uint32_t acqTimeMs, uint8_t waitFinished,
                     uint8_t save, uint8_t *finished)
{
    const bool endless = acqTimeMs == 0 && device.DeviceType == DeviceType::Instrument;
    return {.Kind = kind,
            .AcqTimeMs = acqTimeMs,
            .Blocking = waitFinished && !endless,
            .SaveToFile = save != 0,
            .FinishedFlag = finished};
}

void startMeasurement(const DeviceRef &target, const RunRequest &request, const DeviceLookUp &devices)
{
    auto run = prepareAndStart(target, request, devices);
    if (request.Blocking) waitFor(run->Control, [&run] { return hasReached(*run, RunPhase::Finished); });
}

ResultShape resultShape(const DeviceRef &target, MeasKind kind, const DeviceLookUp &devices)
{
    const auto neverBegun = makeRun(target, {.Kind = kind}, devices);
    return neverBegun->Result && target->device.IsInitialized ? shapeOf(*neverBegun) : ResultShape();
}

void stopMeasurement(MeasContext &context)
{
    context.Description.StopReason = StopReason::Manual;
    if (auto run = liveRun(context)) requestStopByHost(*run);
}

void setSequence(MeasContext &context, int32_t mode, bool wait, double value)
{
    context.SequenceWait = wait;
    switch (mode) {
    case 0: context.SequenceMode = 0; break;
    case 1:
        context.SequenceMode = 1;
        context.SequencePeriodPs = truncated<uint64_t>(value * 1e12);
        break;
    case 2:
        context.SequenceMode = 2;
        context.SequenceCount = truncated<uint64_t>(value);
        break;
    default: break;
    }
    if (auto run = currentRun(context)) wake(run->Control);
}

void confirmNewData(MeasContext &context)
{
    auto run = currentRun(context);
    if (!run || !run->NewDataWait.exchange(false)) return;
    noteTaken(*run);
    wake(run->Control);
}

bool awaitNewData(MeasContext &context)
{
    auto run = currentRun(context);
    if (!run) return false;
    waitFor(run->Control,
            [&] { return run->NewDataWait || hasReached(*run, RunPhase::Finished) || !context.SequenceWait; });
    return run->NewDataWait;
}

} // namespace Tessel
