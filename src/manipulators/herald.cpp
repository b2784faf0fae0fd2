// Herald: lets events of the gated channels through, or copies them to channels of their own, only if they
// fall into a window after the last herald event. The work on the events is in herald_work_simd.cpp.
#include "manipulators/herald.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"

#include <limits>

namespace Tessel {

namespace {

constexpr StageWords heraldWords = {
    .Created = "HeraldMThread created: {} @{}",
    .Started = "HeraldMThread started: {} @{}",
    .Stopped = "HeraldMThread stopped: {} @{}",
    .Exited = "HeraldMThread exited: {} @{}",
    .Overrun = "Device: Herald Buffer overrun - clearing! {} @{}",
};

} // namespace

void startPass(HeraldState &herald, const StageRef &)
{
    herald.Last = 0;
    herald.BeforeLast = std::numeric_limits<uint64_t>::max();
    herald.Seen = false;
}

namespace {

// Without keep the outputs are the gated channels themselves. With nothing gated there is no output: then the
// number is that of the next new channel.
int32_t firstOutput(const DeviceRef &target, const Manipulator &record)
{
    if (!record.OutChans.empty()) return record.OutChans.front();
    return static_cast<int32_t>(numAllChans(target->device, target->context));
}

} // namespace

int32_t addHerald(const DeviceRef &target, const HeraldRequest &request)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Herald;
    record->InChans = {request.Herald};
    for (uint8_t channel : channelBytes(request.Gated)) record->InChans.push_back(channel);
    const auto delay = static_cast<uint64_t>(int64_t{request.DelayPs});
    const auto window = static_cast<uint64_t>(int64_t{request.WindowPs});
    record->Params = {delay, window};
    record->Params2 = {request.Inverted};
    record->KeepFlag = request.Keep;

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMHerald {} {} {} {} {} {} @{}", request.Herald, request.Gated.size(),
               request.DelayPs, request.WindowPs, int32_t{request.Inverted}, int32_t{request.Keep},
               target->device.ID);
    HeraldState state;
    state.Delay = delay;
    state.Window = window;
    state.Inverted = request.Inverted;
    state.Keep = request.Keep;
    auto thread = [state](StageRef stage) { runStage(stage, heraldWords, state); };
    if (!addStage(locks, target, record, "Herald_{}", thread)) return -1;
    return firstOutput(target, *record);
}

} // namespace Tessel
