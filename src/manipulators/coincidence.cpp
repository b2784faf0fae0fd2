// Coincidence: a new event on a channel of its own whenever all member channels had an event within a window.
// The work on the events is in coincidence_work_simd.cpp.
#include "manipulators/coincidence.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/rounding.h"

namespace Tessel {

namespace {

constexpr StageWords coincidenceWords = {
    .Created = nullptr,
    .Started = "CoincidenceMThread started: {} @{}",
    .Stopped = "CoincidenceMThread stopped: {} @{}",
    .Exited = nullptr, // it has last words of its own
    .Overrun = "Device: Coincidence Buffer overrun - clearing! {} @{}",
};

// Hosts know these lines. StoppedFlag is set by now.
void lastWords(const StageRef &stage)
{
    const std::string &name = stage.record->Name, &id = stage.device.ID;
    logInf(LogCategory::Progress, "CoincidenceMThread on exit time : {} @{}", name, id);
    logInf(LogCategory::Progress, "CoincidenceMThread on exit chan: {} @{}", name, id);
    logStage("CoincidenceMThread exited: {} @{}", stage);
}

} // namespace

int32_t addCoincidence(const DeviceRef &target, const CoincidenceRequest &request)
{
    CoincidenceState state;
    state.Window = nearest<uint64_t>(request.WindowPs);
    state.CoincMode = static_cast<CoincMode>(request.CoincMode);
    state.TimeMode = static_cast<TimeMode>(request.TimeMode);
    state.Keep = request.Keep;
    state.MostPending = streamRecords() / 2;

    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Coincidence;
    record->InChans = channelBytes(request.Channels);
    record->Params = {state.Window};
    record->CoincMode = request.CoincMode;
    record->TimeMode = request.TimeMode;
    record->KeepFlag = request.Keep;

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMCoincidence {} {} {} {} @{}", request.Channels.size(), state.Window,
               request.CoincMode, int32_t{request.Keep}, target->device.ID);
    auto thread = [state](StageRef stage) {
        runStage(stage, coincidenceWords, state);
        lastWords(stage);
    };
    if (!addStage(locks, target, record, "Coinc_{}", thread)) return -1;
    return record->OutChans.front();
}

} // namespace Tessel
