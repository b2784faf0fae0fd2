// The events of a Herald, a register of times at a time from AVX2 on: the last herald before each lane is a
// look-up by the lanes that are heralds, and only its time passes from register to register.
#include "manipulators/herald.h"
#include "stream/event_store.h"
#include "stream/times.h"

#include <algorithm>
#include <array>
#include <cstring>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "manipulators/herald_work_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/event_lanes-inl.h"
// clang-format on

#ifndef TESSEL_HERALD_RULES // once for all instruction sets
#define TESSEL_HERALD_RULES
namespace Tessel {
namespace {

// What a channel is to the stage.
struct GateMap
{
    explicit GateMap(const Manipulator &record)
    {
        if (!record.InChans.empty()) Herald = record.InChans.front();
        const size_t gated = std::min(record.OutChans.size(), std::max<size_t>(record.InChans.size(), 1) - 1);
        for (size_t i = gated; i > 0; --i) { // of a channel that is listed twice the first entry counts
            if (!IsGated[record.InChans[i]]) Gated[NumGated++] = record.InChans[i];
            IsGated[record.InChans[i]] = 1;
            Output[record.InChans[i]] = record.OutChans[i - 1];
        }
    }

    uint8_t Herald = 255;
    std::array<uint8_t, 256> IsGated{}, Output{};
    std::array<uint8_t, 256> Gated{}; // each once
    size_t NumGated = 0;
};

// Without a branch on the channel, which nothing predicts: every event is written, and counted if it goes on.
template <bool keep, bool bySync, class Time>
uint64_t gate(HeraldState &state, const GateMap &map, Time time, const Piece &in, uint64_t done, uint64_t end,
              EventStore &out)
{
    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count;
    HeraldState herald = state;
    for (; done < end && at + 1 + keep <= out.Capacity; ++done) {
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
} // namespace Tessel
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

// The output channels of those that are gated.
HWY_INLINE Channels outputsOf(const GateMap &map, Channels channels)
{
    Channels outputs = hn::Zero(dChannels);
    for (size_t i = 0; i < map.NumGated; ++i) {
        const uint8_t gated = map.Gated[i];
        outputs = hn::IfThenElse(hn::Eq(channels, hn::Set(dChannels, gated)),
                                 hn::Set(dChannels, map.Output[gated]), outputs);
    }
    return outputs;
}

// Needs a herald that was seen. One that is gated itself is compared with itself: with keep it isn't.
template <bool keep, bool bySync, class Time>
uint64_t gateLanes(HeraldState &state, const GateMap &map, Time time, const Piece &in, uint64_t done,
                   EventStore &out)
{
    constexpr Stay stay = keep ? Stay::AllAndCopies : Stay::Chosen;
    constexpr uint32_t lanesMask = (1u << TimeLanes) - 1;
    const auto lanes = lanesOf(time);
    const ChannelSet gated(map.IsGated);
    const auto herald = hn::Set(dChannels, map.Herald);
    const auto delay = hn::Set(dTimes, state.Delay), window = hn::Set(dTimes, state.Window);
    const uint32_t insidePass = state.Inverted ? 0 : ~uint32_t{0};
    auto last = hn::Set(dTimes, state.Last);
    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count;
    for (; done + ChannelLanes <= in.Count && at + 2 * ChannelLanes <= out.Capacity; done += ChannelLanes) {
        const auto block = hn::LoadU(dChannels, in.Channels + done);
        const uint32_t heralds = bySync ? 0 : bitsOf(dChannels, hn::Eq(block, herald));
        uint32_t passes = insidePass;
        for (size_t i = 0; i < ChannelLanes; i += TimeLanes) {
            const auto raw = hn::LoadU(dTimes, in.Times + done + i);
            const auto ps = lanes.ps(raw);
            if constexpr (bySync)
                last = lanes.syncPs(raw);
            else
                last = lastChosen(ps, heralds >> i & lanesMask, last);
            const auto from = hn::Add(last, delay);
            const auto outside = hn::Or(hn::Lt(ps, from), hn::Lt(hn::Add(from, window), ps));
            passes ^= bitsOf(dTimes, outside) << i;
            last = lastLane(last);
        }
        const uint32_t isGated = gated.bits(block);
        uint32_t chosen = keep ? isGated & passes : ~isGated | passes;
        alignas(ChannelLanes) uint8_t outputs[ChannelLanes];
        if constexpr (keep) hn::Store(outputsOf(map, block), dChannels, outputs);
        for (size_t i = 0; i < ChannelLanes; i += 8, chosen >>= 8) {
            uint64_t copies = 0;
            if constexpr (keep) std::memcpy(&copies, outputs + i, sizeof copies);
            at += writeEvents<stay>(in.Times + done + i, in.Channels + done + i, copies, chosen & 255,
                                    times + at, channels + at);
        }
    }
    state.Last = hn::GetLane(last);
    out.Count = at;
    return done;
}

template <class Time>
bool hasLanes(const HeraldState &state, const GateMap &map, Time time)
{
    return state.Seen && !(state.Keep && map.IsGated[map.Herald]) && decltype(lanesOf(time))::fits(time);
}

#endif

template <bool keep, bool bySync, class Time>
uint64_t gatePiece(HeraldState &state, const GateMap &map, Time time, const Piece &in, EventStore &out)
{
    uint64_t done = 0;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    if (!state.Seen) {
        const void *found = std::memchr(in.Channels, map.Herald, in.Count);
        const uint64_t first = found ? static_cast<const uint8_t *>(found) - in.Channels + 1 : in.Count;
        done = gate<keep, bySync>(state, map, time, in, done, first, out);
    }
    if (hasLanes(state, map, time)) done = gateLanes<keep, bySync>(state, map, time, in, done, out);
#endif
    return gate<keep, bySync>(state, map, time, in, done, in.Count, out);
}

uint64_t heraldTarget(HeraldState &herald, const StageRef &stage, const Piece &in, EventStore &out)
{
    const GateMap map(*stage.record);
    return withTime(stage.run->Facts, [&](auto time) {
        // A T3 stream has no sync events: every event has its own sync.
        if (map.Herald == ChannelCode::Sync && stage.run->Facts.Mode == MeasMode::T3) {
            herald.Seen = true;
            return herald.Keep ? gatePiece<true, true>(herald, map, time, in, out)
                               : gatePiece<false, true>(herald, map, time, in, out);
        }
        return herald.Keep ? gatePiece<true, false>(herald, map, time, in, out)
                           : gatePiece<false, false>(herald, map, time, in, out);
    });
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(heraldTarget);

uint64_t work(HeraldState &herald, const StageRef &stage, Piece in, EventStore &out)
{
    return HWY_DYNAMIC_DISPATCH(heraldTarget)(herald, stage, in, out);
}

} // namespace Tessel
#endif
