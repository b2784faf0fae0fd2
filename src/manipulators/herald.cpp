// Herald: lets events of the gated channels through, or copies them to channels of their own, only if they
// fall into a window after the last herald event.
#include "manipulators/herald.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/times.h"

#include <algorithm>
#include <array>

namespace Tessel {

namespace {

constexpr StageWords heraldWords = {
    .Created = "HeraldMThread created: {} @{}",
    .Started = "HeraldMThread started: {} @{}",
    .Stopped = "HeraldMThread stopped: {} @{}",
    .Exited = "HeraldMThread exited: {} @{}",
    .Overrun = "Device: Herald Buffer overrun - clearing! {} @{}",
};

// What a channel is to the stage.
struct GateMap
{
    explicit GateMap(const Manipulator &record)
    {
        if (!record.InChans.empty()) Herald = record.InChans.front();
        const size_t gated = std::min(record.OutChans.size(), std::max<size_t>(record.InChans.size(), 1) - 1);
        for (size_t i = gated; i > 0; --i) { // of a channel that is listed twice the first entry counts
            IsGated[record.InChans[i]] = 1;
            Output[record.InChans[i]] = record.OutChans[i - 1];
        }
    }

    uint8_t Herald = 255;
    std::array<uint8_t, 256> IsGated{}, Output{};
};

// Without a branch on the channel, which nothing predicts: every event is written, and counted if it goes on.
template <bool keep, bool bySync, class Time>
uint64_t gate(HeraldState &state, const GateMap &map, Time time, const Piece &in, EventStore &out)
{
    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count;
    HeraldState herald = state;
    uint64_t done = 0;
    for (; done < in.Count && at + 1 + keep <= out.Capacity; ++done) {
        const uint64_t raw = in.Times[done];
        const uint8_t channel = in.Channels[done];
        const uint64_t ps = time.ps(raw);
        const bool isHerald = channel == map.Herald;
        if constexpr (bySync) {
            herald.Last = time.syncPs(raw); // each event is gated by its own sync
        } else {
            herald.BeforeLast = isHerald ? herald.Last : herald.BeforeLast;
            herald.Last = isHerald ? ps : herald.Last;
            herald.Seen |= isHerald;
        }
        // A herald that is gated itself is compared with the one before it where it is kept, else with itself.
        const uint64_t from = herald.Delay + (keep && isHerald ? herald.BeforeLast : herald.Last);
        const bool isInside = herald.Seen & (ps >= from) & (ps <= from + herald.Window);
        const uint8_t passes = isInside != herald.Inverted;
        const uint8_t isGated = map.IsGated[channel];

        times[at] = raw;
        channels[at] = channel;
        if constexpr (keep) {
            times[++at] = raw;
            channels[at] = map.Output[channel];
            at += isGated & passes;
        } else {
            at += (isGated ^ 1) | passes;
        }
    }
    state = herald;
    out.Count = at;
    return done;
}

} // namespace

void startPass(HeraldState &herald, const StageRef &)
{
    herald.Last = 0;
    herald.BeforeLast = std::numeric_limits<uint64_t>::max();
    herald.Seen = false;
}

uint64_t work(HeraldState &herald, const StageRef &stage, Piece in, EventStore &out)
{
    const GateMap map(*stage.record);
    return withTime(stage.run->Facts, [&](auto time) {
        // A T3 stream has no sync events: every event has its own sync.
        if (map.Herald == ChannelCode::Sync && stage.run->Facts.Mode == MeasMode::T3) {
            herald.Seen = true;
            return herald.Keep ? gate<true, true>(herald, map, time, in, out)
                               : gate<false, true>(herald, map, time, in, out);
        }
        return herald.Keep ? gate<true, false>(herald, map, time, in, out)
                           : gate<false, false>(herald, map, time, in, out);
    });
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
