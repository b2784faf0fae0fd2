// Merge: copies the events of several channels onto one new channel.
#include "manipulators/merge.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"

#include <array>

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

// A member comes out twice, under its own channel and under the merged one. Without keep, nothing else does.
uint64_t work(MergeState &merge, const StageRef &stage, Piece in, EventStore &out)
{
    const Manipulator &record = *stage.record;
    std::array<uint8_t, 256> isMember{};
    if (!record.OutChans.empty())
        for (uint8_t channel : record.InChans) isMember[channel] = 1;
    const uint8_t merged = record.OutChans.empty() ? 0 : record.OutChans.front();
    const uint8_t keep = merge.Keep;

    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count;
    const uint64_t end = out.Capacity;
    uint64_t done = 0;
    for (; done < in.Count && at + 2 <= end; ++done) {
        const uint64_t time = in.Times[done];
        const uint8_t channel = in.Channels[done];
        const uint8_t member = isMember[channel];
        times[at] = time;
        channels[at] = channel;
        at += keep | member;
        times[at] = time;
        channels[at] = merged;
        at += member;
    }
    out.Count = at;
    return done;
}

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
