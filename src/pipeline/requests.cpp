#include "pipeline/requests.h"

#include "devices/lifecycle.h"
#include "devices/primitives.h"
#include "devices/result.h"
#include "devices/truncated.h"
#include "manipulators/chain.h"
#include "pipeline/import_sources.h"
#include "pipeline/measure_thread.h"

#include <chrono>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

namespace {

void resetRequests(MeasContext &context)
{
    context.AbortRequested = false;
    context.ClearRequested = false;
    context.StopRequested = false;
    context.StopByHost = false;
    context.InputDone = false;
    context.ConsumersEnd = false;
    context.LastData = false;
    context.NewData = false;
    context.NewDataWait = false;
    context.ReadGate.release(); // a stage that couldn't be ended may have kept it
}

// A run that never came to life: over before it began.
void refuseRun(Run &run)
{
    writeFinished(run, 1);
    std::lock_guard lock(run.OverLock);
    run.Over = true;
}

void begin(const DeviceRef &target, const std::shared_ptr<Run> &run)
{
    {
        std::lock_guard lock(target.context->RunLock);
        target.context->CurrentRun = run;
    }
    try {
        std::thread(MeasureThread, RunRef{target, run}).detach();
    } catch (...) {
        refuseRun(*run);
        throw;
    }
}

std::shared_ptr<Run> commonStart(const DeviceRef &target, const RunRequest &request)
{
    MeasContext &context = *target.context;
    std::lock_guard oneStart(context.StartLock);
    auto run = std::make_shared<Run>(request, context.Params, numAllChans(*target.device, context),
                                     target.device->NumBins);
    writeFinished(*run, 0);
    const bool free = endRun(target);
    run->rawCount() = run->unfoldCount() = 0; // after the run before it, which may have counted there
    if (!free) {                              // the run that can't be stopped keeps the record
        refuseRun(*run);
        return run;
    }
    resetRequests(context);
    writeFinished(*run, 0); // again, where the run before it had the same byte
    if (target.device->Index < 0 || context.Closed) {
        reportDeviceError(LogCategory::General, "Device: Can't do a measurement on a invalid device! @{}",
                          target.device->ID);
        refuseRun(*run);
    } else
        begin(target, run);
    return run;
}

// A start under way, for its import sources: they are read before the run for which they are lives.
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

std::shared_ptr<Run> prepareAndStart(const DeviceRef &target, const RunRequest &request)
{
    const Start start(*target.context);
    try {
        if (request.PrepareImports) prepareImportSources(target);
        return commonStart(target, request);
    } catch (...) { // no memory or no thread: whoever polls goes on all the same
        writeFinished(request.FinishedFlag, 1);
        throw;
    }
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

void startMeasurement(const DeviceRef &target, RunRequest request)
{
    auto run = prepareAndStart(target, request);
    while (request.Blocking && !run->Finished) std::this_thread::sleep_for(3ms);
}

void stopMeasurement(MeasContext &context)
{
    context.Description.StopReason = StopReason::Manual;
    context.AbortRequested = false;
    context.StopByHost = true;
    context.StopRequested = true;
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
}

void confirmNewData(MeasContext &context)
{
    if (!context.NewDataWait.exchange(false)) return;
    if (auto run = context.currentRun()) ++run->Taken;
}

bool awaitNewData(MeasContext &context)
{
    while (!context.NewDataWait) {
        auto run = context.currentRun();
        if (!run || run->Finished || !context.SequenceWait) break;
        std::this_thread::sleep_for(1ms);
    }
    return context.NewDataWait;
}

} // namespace Tessel
