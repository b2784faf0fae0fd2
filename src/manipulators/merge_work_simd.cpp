// The events of a Merge, eight at a time from AVX2 on: a member comes out twice, under its own channel and
// under the merged one. Without keep, nothing else does.
#include "manipulators/merge.h"
#include "stream/event_store.h"

#include <array>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "manipulators/merge_work_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/event_lanes-inl.h"
// clang-format on

#ifndef TESSEL_MERGE_RULES // once for all instruction sets
#define TESSEL_MERGE_RULES
namespace Tessel {
namespace {

struct MergeRules
{
    std::array<uint8_t, 256> IsMember;
    uint8_t Merged;
    bool Keep;
};

} // namespace
} // namespace Tessel
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

template <Stay stay>
uint64_t mergeLanes(const MergeRules &rules, const Piece &in, EventStore &out)
{
    const ChannelSet members(rules.IsMember);
    const uint64_t copies = 0x0101010101010101u * rules.Merged;
    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count, done = 0;
    for (; done + ChannelLanes <= in.Count && at + 2 * ChannelLanes <= out.Capacity; done += ChannelLanes) {
        uint32_t chosen = members.bits(hn::LoadU(dChannels, in.Channels + done));
        for (size_t i = done; i < done + ChannelLanes; i += 8, chosen >>= 8)
            at += writeEvents<stay>(in.Times + i, in.Channels + i, copies, chosen & 255, times + at,
                                    channels + at);
    }
    out.Count = at;
    return done;
}

uint64_t mergeTarget(const MergeRules &rules, const Piece &in, EventStore &out)
{
    return rules.Keep ? mergeLanes<Stay::AllAndCopies>(rules, in, out)
                      : mergeLanes<Stay::ChosenDouble>(rules, in, out);
}

#else

uint64_t mergeTarget(const MergeRules &, const Piece &, EventStore &)
{
    return 0;
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(mergeTarget);

namespace {

// The events from `done` on, without a branch on the channel, which nothing predicts.
uint64_t mergeEvents(const MergeRules &rules, const Piece &in, uint64_t done, EventStore &out)
{
    uint64_t *times = out.Times.get();
    uint8_t *channels = out.Channels.get();
    uint64_t at = out.Count;
    const uint8_t keep = rules.Keep;
    for (; done < in.Count && at + 2 <= out.Capacity; ++done) {
        const uint64_t time = in.Times[done];
        const uint8_t channel = in.Channels[done];
        const uint8_t member = rules.IsMember[channel];
        times[at] = time;
        channels[at] = channel;
        at += keep | member;
        times[at] = time;
        channels[at] = rules.Merged;
        at += member;
    }
    out.Count = at;
    return done;
}

} // namespace

uint64_t work(MergeState &merge, const StageRef &stage, Piece in, EventStore &out)
{
    const Manipulator &record = *stage.record;
    MergeRules rules{{}, 0, merge.Keep};
    if (!record.OutChans.empty()) {
        for (uint8_t channel : record.InChans) rules.IsMember[channel] = 1;
        rules.Merged = record.OutChans.front();
    }
    return mergeEvents(rules, in, HWY_DYNAMIC_DISPATCH(mergeTarget)(rules, in, out), out);
}

} // namespace Tessel
#endif
