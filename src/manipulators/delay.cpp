// Delay: shifts the events of one channel later in time and holds them back until their time has come, so that
// the stream stays in order. An event comes out with the first one that isn't earlier. Events held back at the
// end of the run are lost. The work on the events is in delay_work_simd.cpp.
#include "manipulators/delay.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/rounding.h"

namespace Tessel {

namespace {

constexpr StageWords delayWords = {
    .Created = "DelayMThread created: {} @{}",
    .Started = "DelayMThread started: {} @{}",
    .Stopped = "DelayMThread stopped: {} @{}",
    .Exited = "DelayMThread exited: {} @{}",
    .Overrun = "Device: Delay Buffer overrun - clearing! {} @{}",
};

} // namespace

void startPass(DelayState &delay, const StageRef &)
{
    delay.Held.clear();
}

void clear(DelayState &delay)
{
    delay.Held.clear();
}

int32_t addDelay(const DeviceRef &target, uint8_t channel, double delayPs, bool keep)
{
    const auto delay = static_cast<uint64_t>(int64_t{nearest<int32_t>(delayPs)});
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Delay;
    record->InChans = {channel};
    record->Params = {delay};
    record->KeepFlag = keep;

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMDelay {} {} @{}", channel, static_cast<int64_t>(delay),
               target->device.ID);
    auto thread = [delay, keep](StageRef stage) {
        runStage(stage, delayWords,
                 DelayState{.Delay = delay, .Keep = keep, .Held = {}, .MostHeld = streamRecords() / 2});
    };
    if (!addStage(locks, target, record, "Delay_{}", thread)) return -1;
    return record->OutChans.front();
}

} // namespace Tessel
