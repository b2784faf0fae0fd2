// The events of a Coincidence. A batch starts without any last time, so that no coincidence spans two batches;
// what is pending stays.
//
// Most events of a stream have no other within the window before them. Such quiet events complete no set, and
// all that is pending is old to them: they pass in runs. Everything else goes event by event.
#include "manipulators/coincidence_events.h"
#include "stream/run_copy.h"
#include "stream/times.h"

#include <bit>
#include <cassert>
#include <utility>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "manipulators/coincidence_work_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/event_lanes-inl.h"
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

template <class Time>
class CoincidenceWork
{
public:
    CoincidenceWork(CoincidenceState &coincidence, const Manipulator &record, Time rawTime, const Piece &piece,
                    EventStore &store)
        : state(coincidence), in(piece), out(store), events(coincidence, record, rawTime, store)
    {
    }

    uint64_t run()
    {
        uint64_t at = 0;
        if (!in.Resumed)
            events.startPiece();
        else if (!state.Ready.empty()) { // of the first event only the output is left
            if (!events.writeReady()) return 0;
            at = 1;
        }
        const bool hasQuiet = events.canBeQuiet();
        while (at < in.Count) {
            assert(events.holds() && state.Ready.empty());
            if (hasQuiet) at = passQuiet(at);
            if (at == in.Count) break;
            events.work(in.Times[at], in.Channels[at]);
            if (!state.Ready.empty()) break;
            ++at;
        }
        assert(events.holds());
        return at;
    }

private:
    // Passes the quiet events from `at` on, as far as there is room for them and all that is pending. Needs and
    // keeps C1 to C3.
    uint64_t passQuiet(uint64_t at)
    {
        if (!events.holdsBack) {
            const uint64_t room = state.Keep ? roomOf(out) : in.Count - at;
            const uint64_t end = at + std::min(in.Count - at, room);
            return state.Keep ? endOfQuiet<false, true>(at, end) : endOfQuiet<false, false>(at, end);
        }
        const uint64_t room = roomOf(out) - std::min(roomOf(out), state.Pending.size());
        const uint64_t end = endOfQuiet<true, false>(at, at + std::min(in.Count - at, room));
        if (end == at) return at;
        if (state.Keep)
            passPending(at, end);
        else
            dropPending(at, end);
        return end;
    }

    // Takes the quiet events into QuietAfter and the last times. With nothing held back only members matter.
    // With `copies` the events also go on.
    template <bool all, bool copies>
    uint64_t endOfQuiet(uint64_t at, uint64_t end)
    {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
        const bool fits = state.Window < quietLimit && decltype(lanesOf(events.time))::fits(events.time);
        if (fits && at + ChannelLanes <= end) {
            const uint64_t from = std::exchange(at, endOfQuietLanes<all, copies>(at, end));
            takeLastTimes(from, at);
            if (copies) out.Count += at - from;
        }
#endif
        end = endOfQuietEvents<all>(at, end);
        if (copies) appendRun(in, at, end, out);
        return end;
    }

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

    static constexpr uint64_t quietLimit = uint64_t{1} << 61; // the sum of two such is a signed number

    // As far as whole registers of channels go. Each event is compared with the one before it that matters: as
    // long as all are quiet their times ascend.
    template <bool all, bool copies>
    uint64_t endOfQuietLanes(uint64_t at, uint64_t end)
    {
        uint64_t *outTimes = out.Times.get() + out.Count;
        uint8_t *outChannels = out.Channels.get() + out.Count;
        constexpr hn::RebindToSigned<decltype(dTimes)> dSigned;
        constexpr uint32_t lanesMask = (1u << TimeLanes) - 1;
        const auto lanes = lanesOf(events.time);
        const auto window = hn::Set(dTimes, state.Window);
        auto last = hn::Set(dTimes, static_cast<uint64_t>(state.QuietAfter) - state.Window);
        for (; at + ChannelLanes <= end; at += ChannelLanes) {
            const uint32_t members = all ? ~uint32_t{0} : membersFrom(at);
            uint32_t quiet = ~members;
            auto largest = hn::Zero(dTimes);
            const auto lastBefore = last;
            for (size_t i = 0; i < ChannelLanes; i += TimeLanes) {
                const auto raw = hn::LoadU(dTimes, in.Times + at + i);
                if constexpr (copies) hn::StoreU(raw, dTimes, outTimes + i);
                const auto ps = lanes.ps(raw);
                const auto lasts = all ? ps : lastChosen(ps, members >> i & lanesMask, last);
                const auto after = hn::Add(laneBefore(lasts, last), window);
                quiet |= bitsOf(dSigned, hn::Lt(hn::BitCast(dSigned, after), hn::BitCast(dSigned, ps))) << i;
                largest = hn::Or(largest, ps);
                last = lastLane(lasts);
            }
            if constexpr (copies) hn::StoreU(hn::LoadU(dChannels, in.Channels + at), dChannels, outChannels);
            outTimes += ChannelLanes;
            outChannels += ChannelLanes;
            const auto isLarge = hn::Ne(hn::And(largest, hn::Set(dTimes, ~(quietLimit - 1))), hn::Zero(dTimes));
            if (!hn::AllFalse(dTimes, isLarge)) quiet = 0;
            if (quiet == ~uint32_t{0}) continue;
            const auto passed = static_cast<uint32_t>(std::countr_one(quiet));
            const uint32_t counted = members & ((1u << passed) - 1);
            state.QuietAfter = static_cast<int64_t>(hn::GetLane(lastBefore) + state.Window);
            if (counted != 0)
                state.QuietAfter =
                    events.quietAfter(psOf(at + static_cast<uint32_t>(std::bit_width(counted)) - 1));
            return at + passed;
        }
        state.QuietAfter = static_cast<int64_t>(hn::GetLane(last) + state.Window);
        return at;
    }

    // The last time of each member among the events [from, to).
    void takeLastTimes(uint64_t from, uint64_t to)
    {
        for (size_t i = 0; i < events.distinctCount; ++i) {
            const auto member = hn::Set(dChannels, events.distinct[i]);
            for (uint64_t end = to, begin; end > from; end = begin) {
                begin = end - std::min<uint64_t>(end, ChannelLanes);
                uint32_t found = bitsOf(dChannels, hn::Eq(hn::LoadU(dChannels, in.Channels + begin), member));
                if (end - begin < ChannelLanes) found &= (1u << (end - begin)) - 1;
                if (begin < from) found &= ~uint32_t{0} << (from - begin);
                if (found == 0) continue;
                state.LastTime[events.distinct[i]] =
                    psOf(begin + static_cast<uint32_t>(std::bit_width(found)) - 1);
                break;
            }
        }
    }

    // Writes what stays of the events from `at` on, as far as whole registers of channels go: members that an
    // event which isn't one follows, up to `end`. Gives how far that is.
    uint64_t writeFollowedLanes(uint64_t at, uint64_t end)
    {
        for (; at + ChannelLanes < end && roomOf(out) >= 2 * ChannelLanes; at += ChannelLanes) {
            const uint32_t member = membersFrom(at);
            const uint32_t after = uint32_t{events.isMember[in.Channels[at + ChannelLanes]]} << 31;
            uint32_t chosen = member & ~(member >> 1 | after);
            for (uint64_t i = at; i < at + ChannelLanes; i += 8, chosen >>= 8)
                out.Count +=
                    writeEvents<Stay::Chosen>(in.Times + i, in.Channels + i, 0, chosen & 255,
                                              out.Times.get() + out.Count, out.Channels.get() + out.Count);
        }
        return at;
    }

    uint32_t membersFrom(uint64_t at) const
    {
        return members.bits(hn::LoadU(dChannels, in.Channels + at));
    }

#endif

    // Takes the quiet events into QuietAfter and the last times. With nothing held back only members matter. No
    // branch on that, since nothing predicts which event is a member.
    template <bool all>
    uint64_t endOfQuietEvents(uint64_t at, uint64_t end)
    {
        int64_t after = state.QuietAfter;
        for (; at < end; ++at) {
            const uint8_t channel = in.Channels[at];
            const uint64_t ps = events.time.ps(in.Times[at]);
            const int64_t mask = all ? -1 : -int64_t{events.isMember[channel]};
            if (static_cast<int64_t>(ps) <= (after & mask)) break;
            after = std::max(after, events.quietAfter(ps) & mask);
            state.LastTime[channel] = ps;
        }
        state.QuietAfter = after;
        return at;
    }

    // What becomes of a quiet event, all that is pending before it being old:
    //
    // Q1: a member makes the others go, one by one, and stays pending alone.
    // Q2: a non-member makes all go, itself too. Where nothing is pending it stays, alone.
    // Q3: what goes is written with Keep; without, only a member that a non-member makes go.

    // With Keep: all that is pending goes out, then the run, except for its last event if that stays.
    void passPending(uint64_t at, uint64_t end)
    {
        const bool lastStays = staysPending(at, end);
        for (const HeldEvent &event : state.Pending) append(out, event.Raw, event.Channel);
        state.Pending.clear();
        appendRun(in, at, end - lastStays, out);
        if (lastStays) hold(end - 1);
    }

    // From the last member on non-members go and stay by turns.
    bool staysPending(uint64_t at, uint64_t end) const
    {
        uint64_t others = 0;
        for (; end > at && !events.isMember[in.Channels[end - 1]]; --end) ++others;
        const bool isPending = end > at || !state.Pending.empty(); // before the others
        return isPending == (others % 2 == 0);
    }

    // Without Keep. After the first event at most the event before is pending; if that is a member, always.
    void dropPending(uint64_t at, uint64_t end)
    {
        const bool lastStays = staysPending(at, end);
        if (!events.isMember[in.Channels[at]])
            for (const HeldEvent &event : state.Pending)
                if (events.isMember[event.Channel]) append(out, event.Raw, event.Channel);
        state.Pending.clear();
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
        at = writeFollowedLanes(at, end);
#endif
        for (bool member = events.isMember[in.Channels[at]];
             ++at < end;) { // written, and counted if it goes on
            const bool wasMember = std::exchange(member, events.isMember[in.Channels[at]]);
            out.Times[out.Count] = in.Times[at - 1];
            out.Channels[out.Count] = in.Channels[at - 1];
            out.Count += wasMember & !member;
        }
        if (lastStays) hold(end - 1);
    }

    uint64_t psOf(uint64_t at) const
    {
        return events.time.ps(in.Times[at]);
    }
    void hold(uint64_t at)
    {
        events.hold(in.Times[at], psOf(at), in.Channels[at]);
    }

    CoincidenceState &state;
    const Piece &in;
    EventStore &out;
    CoincidenceEvents<Time> events;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    const ChannelSet members{events.isMember};
#endif
};

uint64_t coincidenceTarget(CoincidenceState &coincidence, const StageRef &stage, const Piece &in,
                           EventStore &out)
{
    return withTime(stage.run->Facts, [&](auto time) {
        return CoincidenceWork<decltype(time)>(coincidence, *stage.record, time, in, out).run();
    });
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(coincidenceTarget);

void startPass(CoincidenceState &coincidence, const StageRef &)
{
    coincidence.Pending.clear();
    coincidence.Ready.clear();
}

uint64_t work(CoincidenceState &coincidence, const StageRef &stage, Piece in, EventStore &out)
{
    switch (coincidence.TimeMode) {
    case TimeMode::First:
    case TimeMode::Last:
    case TimeMode::Average: return HWY_DYNAMIC_DISPATCH(coincidenceTarget)(coincidence, stage, in, out);
    }
    return in.Count; // a coincidence that has no time: nothing goes on
}

void clear(CoincidenceState &coincidence)
{
    coincidence.Pending.clear();
}

// With TimeMode Average, events still pending are lost.
bool finishPass(CoincidenceState &coincidence, const StageRef &, EventStore *out)
{
    if (coincidence.TimeMode != TimeMode::First || !coincidence.Keep || !out) return true;
    EventQueue &pending = coincidence.Pending;
    const uint64_t count = std::min(pending.size(), roomOf(*out));
    for (uint64_t i = 0; i < count; ++i) append(*out, pending.begin()[i].Raw, pending.begin()[i].Channel);
    pending.drop(count);
    return pending.empty();
}

} // namespace Tessel
#endif
