// The events of a Delay: one by one, and in blocks from AVX2 on. There the times of a block are worked out
// first, and the events up to each one held back are copied eight at a time while they are looked at. The
// events on the input are held back late, in one go: at the end of the block, or when nothing is left that was
// held before.
#include "manipulators/delay.h"
#include "stream/event_store.h"
#include "stream/run_copy.h"
#include "stream/time_span.h"
#include "stream/times.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "manipulators/delay_work_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/event_lanes-inl.h"
// clang-format on

#ifndef TESSEL_DELAY_EVENTS // once for all instruction sets
#define TESSEL_DELAY_EVENTS
namespace Tessel {
namespace {

template <class Time>
class DelayEvents
{
public:
    DelayEvents(DelayState &delayState, const Manipulator &record, Time rawTime, const Piece &piece,
                EventStore &store)
        : state(delayState), time(rawTime), in(piece), out(store)
    {
        hasInput = !record.InChans.empty();
        if (hasInput) input = record.InChans.front();
        delayed = state.Keep && !record.OutChans.empty() ? record.OutChans.front() : input;
    }

    // The events from `at` to `end`.
    uint64_t run(uint64_t at, uint64_t end)
    {
        while (at < end && roomOf(out) > 0) {
            const uint64_t next = endOfRun(at, end);
            appendRun(in, at, next, out);
            at = next;
            if (at == end || !workEvent(at)) break;
            ++at;
        }
        return at;
    }

    // End of the events that only pass: before the next one on the input, and the next that makes a held one
    // due.
    uint64_t endOfRun(uint64_t at, uint64_t end)
    {
        if (nextInput < at) nextInput = findInput(at);
        end = std::min({nextInput, end, at + roomOf(out)});
        if (state.Held.empty()) return end;
        const uint64_t due = state.Held.front().Ps;
        const uint64_t surelyBefore = time.surelyBefore(due);
        at += leadingWithin(in.Times + at, end - at, 0, surelyBefore);
        while (at < end && (in.Times[at] < surelyBefore || time.ps(in.Times[at]) < due)) ++at;
        return at;
    }

    uint64_t findInput(uint64_t at) const
    {
        const void *found = hasInput ? std::memchr(in.Channels + at, input, in.Count - at) : nullptr;
        return found ? static_cast<uint64_t>(static_cast<const uint8_t *>(found) - in.Channels) : in.Count;
    }

    // False: there is no room; the event comes again.
    bool workEvent(uint64_t at)
    {
        const uint64_t raw = in.Times[at];
        const uint64_t ps = time.ps(raw);
        while (!state.Held.empty() && ps >= state.Held.front().Ps)
            if (!release()) return false;
        const bool isInput = hasInput && in.Channels[at] == input;
        if (isInput && state.Held.size() >= state.MostHeld && !release()) return false;
        if (!isInput || state.Keep) {
            if (roomOf(out) == 0) return false;
            append(out, raw, in.Channels[at]);
        }
        if (isInput) state.Held.push(later(raw, ps));
        return true;
    }

    HeldEvent later(uint64_t raw, uint64_t ps) const
    {
        const uint64_t laterRaw = Time::isT3 ? time.raw(ps + state.Delay) : raw + state.Delay;
        return {laterRaw, time.ps(laterRaw), delayed};
    }

    bool release()
    {
        if (roomOf(out) == 0) return false;
        append(out, state.Held.front().Raw, state.Held.front().Channel);
        state.Held.drop(1);
        return true;
    }

    DelayState &state;
    const Time time;
    const Piece &in;
    EventStore &out;
    bool hasInput = false;
    uint8_t input = 0, delayed = 0;
    uint64_t nextInput = 0; // the first event of the input that isn't done, or one before it
};

} // namespace
} // namespace Tessel
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

constexpr uint64_t BlockEvents = 512;

// Times in ps and, a bit each, which events are on the input. Behind the block stand times that nothing is
// after.
struct DelayBlock
{
    alignas(64) uint64_t Ps[BlockEvents + 8];
    uint8_t Inputs[BlockEvents / 8 + 8];
    uint16_t After[BlockEvents]; // for each event on the input the one after it
    uint64_t NumInputs;
    bool IsRare; // the channel of the inputs

    // Whether the eight events from `at` on are on the input.
    uint32_t inputs(uint64_t at) const
    {
        uint16_t bits;
        std::memcpy(&bits, Inputs + at / 8, sizeof bits);
        return bits >> at % 8 & 255u;
    }
};

template <class Lanes>
void fill(DelayBlock &block, const Lanes &lanes, uint8_t input, const uint64_t *times, const uint8_t *channels,
          uint64_t count)
{
    for (uint64_t i = 0; i < count; i += TimeLanes)
        hn::Store(lanes.ps(hn::LoadU(dTimes, times + i)), dTimes, block.Ps + i);
    std::fill_n(block.Ps + count, 8, ~uint64_t{0});
    for (uint64_t i = 0; i < count; i += ChannelLanes) {
        const auto isInput = hn::Eq(hn::LoadU(dChannels, channels + i), hn::Set(dChannels, input));
        const uint32_t bits = bitsOf(dChannels, isInput);
        std::memcpy(block.Inputs + i / 8, &bits, sizeof bits);
    }
    std::memset(block.Inputs + count / 8, 0, 8);
}

// How many of eight times are before `due`, up to the first that isn't.
HWY_INLINE uint32_t leadingBefore(const uint64_t *ps, uint64_t due)
{
    uint32_t before = 0;
    for (uint32_t i = 0; i < 8; i += TimeLanes)
        before |= bitsOf(dTimes, hn::Lt(hn::LoadU(dTimes, ps + i), hn::Set(dTimes, due))) << i;
    return static_cast<uint32_t>(std::countr_one(before));
}

template <class Time>
void holdInputs(DelayEvents<Time> &delay, DelayBlock &block, const uint64_t *times, uint64_t count)
{
    block.NumInputs = 0;
    for (uint64_t i = 0; i < count; i += 64) {
        uint64_t inputs;
        std::memcpy(&inputs, block.Inputs + i / 8, sizeof inputs);
        for (; inputs != 0; inputs &= inputs - 1)
            block.After[block.NumInputs++] =
                static_cast<uint16_t>(i + 1 + static_cast<uint64_t>(std::countr_zero(inputs)));
    }
    block.IsRare = block.NumInputs * 16 < count;
    HeldEvent *held = delay.state.Held.grow(block.NumInputs);
    for (uint64_t i = 0; i < block.NumInputs; ++i, ++held)
        *held = delay.later(times[block.After[i] - 1], block.Ps[block.After[i] - 1]);
}

// Where a block goes to, and how far it has come.
struct BlockPass
{
    const uint64_t *Times;
    const uint8_t *Channels;
    uint64_t LastAt; // where eight events can still be read
    uint64_t *OutTimes;
    uint8_t *OutChannels;
    uint64_t LastOut; // where LanesWritten events can still be written
    uint64_t At = 0, OutAt;
};

// The first of the next eight events, as many as `passed`.
template <bool keep>
HWY_INLINE void passEvents(BlockPass &pass, const DelayBlock &block, uint64_t passed)
{
    const uint64_t *times = pass.Times + pass.At;
    const uint8_t *channels = pass.Channels + pass.At;
    uint64_t *outTimes = pass.OutTimes + pass.OutAt;
    uint8_t *outChannels = pass.OutChannels + pass.OutAt;
    const uint32_t inputs = keep ? 0 : block.inputs(pass.At);
    if (keep || (block.IsRare && inputs == 0)) { // on a busy channel nothing predicts it
        for (size_t i = 0; i < 8; i += TimeLanes)
            hn::StoreU(hn::LoadU(dTimes, times + i), dTimes, outTimes + i);
        std::memcpy(outChannels, channels, 8);
        pass.OutAt += passed;
    } else {
        const uint32_t stays = ~inputs & ((1u << passed) - 1);
        pass.OutAt += writeEvents<Stay::Chosen>(times, channels, 0, stays, outTimes, outChannels);
    }
    pass.At += passed;
}

HWY_INLINE bool hasRoom(const BlockPass &pass)
{
    return pass.At <= pass.LastAt && pass.OutAt <= pass.LastOut;
}

// All events before `end`. False: there may be no room, or no eight events to look at.
template <bool keep>
HWY_INLINE bool passUntil(BlockPass &pass, const DelayBlock &block, uint64_t end)
{
    while (pass.At < end) {
        if (!hasRoom(pass)) return false;
        passEvents<keep>(pass, block, std::min<uint64_t>(end - pass.At, 8));
    }
    return true;
}

// The events before `due`, up to the first that isn't.
template <bool keep>
HWY_INLINE bool passBefore(BlockPass &pass, const DelayBlock &block, uint64_t due)
{
    for (uint32_t passed = 8; passed == 8;) {
        if (!hasRoom(pass)) return false;
        passed = leadingBefore(block.Ps + pass.At, due);
        passEvents<keep>(pass, block, passed);
    }
    return true;
}

// How many events of the block are done: fewer than all where room or piece come to their end.
template <bool keep, class Time>
uint64_t passBlock(DelayEvents<Time> &delay, DelayBlock &block, uint64_t begin, uint64_t count)
{
    EventQueue &queue = delay.state.Held;
    EventStore &out = delay.out;
    const uint64_t heldBefore = queue.size();
    BlockPass pass{.Times = delay.in.Times + begin,
                   .Channels = delay.in.Channels + begin,
                   .LastAt = delay.in.Count - begin - 8,
                   .OutTimes = out.Times.get(),
                   .OutChannels = out.Channels.get(),
                   .LastOut = out.Capacity - LanesWritten,
                   .OutAt = out.Count};
    holdInputs(delay, block, pass.Times, count);
    const HeldEvent *held = queue.begin(), *const end = queue.end();
    const HeldEvent *const firstNew = held + heldBefore;
    const auto release = [&] { // with the first event that isn't earlier
        if (!passBefore<keep>(pass, block, held->Ps) || pass.At == count) return false;
        pass.OutTimes[pass.OutAt] = held->Raw;
        pass.OutChannels[pass.OutAt++] = held->Channel;
        ++held;
        return true;
    };
    bool goesOn = true;
    while (goesOn && held != firstNew) goesOn = release();
    // None is due before the event that it comes from has passed.
    for (uint64_t i = 0; goesOn && held != end; ++i)
        goesOn = passUntil<keep>(pass, block, block.After[i]) && release();
    if (held == end) passUntil<keep>(pass, block, count);
    queue.drop(static_cast<uint64_t>(held - queue.begin()));
    uint64_t late = 0; // on the input, and not passed
    while (late < block.NumInputs && block.After[block.NumInputs - 1 - late] > pass.At) ++late;
    queue.dropLast(late);
    out.Count = pass.OutAt;
    return pass.At;
}

// The events from `at` on, as far as whole registers of channels go.
template <bool keep, class Time>
uint64_t delayBlocks(DelayEvents<Time> &delay, const Piece &in)
{
    const auto lanes = lanesOf(delay.time);
    DelayBlock block;
    uint64_t at = 0;
    while (at + ChannelLanes <= in.Count) {
        const uint64_t count = std::min(BlockEvents, (in.Count - at) / ChannelLanes * ChannelLanes);
        const uint64_t end = at + count;
        if (delay.state.Held.size() + count < delay.state.MostHeld) {
            fill(block, lanes, delay.input, in.Times + at, in.Channels + at, count);
            at += passBlock<keep>(delay, block, at, count);
        }
        at = delay.run(at, end);
        if (at < end) break;
    }
    return at;
}

#endif

template <class Time>
uint64_t delayPiece(DelayEvents<Time> delay, const Piece &in)
{
    uint64_t at = 0;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    if (delay.hasInput && delay.out.Capacity >= LanesWritten && decltype(lanesOf(delay.time))::fits(delay.time))
        at = delay.state.Keep ? delayBlocks<true>(delay, in) : delayBlocks<false>(delay, in);
#endif
    return delay.run(at, in.Count);
}

uint64_t delayTarget(DelayState &delay, const StageRef &stage, const Piece &in, EventStore &out)
{
    return withTime(stage.run->Facts, [&](auto time) {
        return delayPiece(DelayEvents<decltype(time)>(delay, *stage.record, time, in, out), in);
    });
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(delayTarget);

uint64_t work(DelayState &delay, const StageRef &stage, Piece in, EventStore &out)
{
    return HWY_DYNAMIC_DISPATCH(delayTarget)(delay, stage, in, out);
}

} // namespace Tessel
#endif
