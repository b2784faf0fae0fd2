// Merge: copies the events of several channels onto one new channel. The work on the events is in
// merge_work_simd.cpp.
#include "manipulators/merge.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"

namespace Tessel {

namespace {

// A Merge that ends between two runs leaves StoppedFlag as the last run left it: hosts know it so.
constexpr StageWords mergeWords = {
    .Created = "MergeMThread created: {} @{}",
    .Started = "MergeMThread started: {} @{}",
    .Stopped = "MergeMThread stopped: {} @{}",
    .Exited = "MergeMThread exited: {} @{}",
    .Overrun = "Device: Merge Buffer overrun - clearing! {} @{}",
    .StoppedAtExit = false,
};

} // namespace

int32_t addMerge(const DeviceRef &target, std::span<const int32_t> channels, bool keep)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Merge;
    record->InChans = channelBytes(channels);
    record->KeepFlag = keep;

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMMerge {} @{}", channels.size(), target->device.ID);
    auto thread = [keep](StageRef stage) { runStage(stage, mergeWords, MergeState{.Keep = keep}); };
    if (!addStage(locks, target, record, "Merge_{}", thread)) return -1;
    return record->OutChans.front();
}

} // namespace Tessel
