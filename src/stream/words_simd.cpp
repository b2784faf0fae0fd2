// Record words a register at a time: 8 words on AVX2, 16 on AVX-512, chosen at run time. Elsewhere wide
// registers don't pay and the plain loop does the work. No lock and no thread.
//
// In both modes a word is taken apart into `Low`, 25 bits of time, and `Wraps`, the overflows that it counts (0
// but for an overflow record). With `before`, the sum of the wraps of its group up to and with the word, its
// time is, in T3 with low = nsync << 15 | dtime and in T2 with low = timetag,
//
//     T3   (overflowBase << 15)          +  low + (before << 25)
//     T2   (overflowBase * SyncPeriodPs) + (low + (before << 25)) * SyncPeriodPs
//
// so that the first term alone passes from group to group. All of it wraps at 64 bits, as in the plain loop.
//
// A group is written whole even if words of it are dropped: there are never more events than words before it,
// so the write stays within the room of words.size() events.
#include "stream/times.h"
#include "stream/words.h"

#include <algorithm>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stream/words_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/cache_control.h>
#include <hwy/highway.h>
#include "stream/pack_lanes-inl.h"
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<uint32_t> d32;
const hn::ScalableTag<uint64_t> d64;
const hn::Rebind<uint8_t, decltype(d32)> d8;
using Words32 = hn::Vec<decltype(d32)>;
using Words64 = hn::Vec<decltype(d64)>;
using Bytes = hn::Vec<decltype(d8)>; // one for each lane of Words32
using Mask32 = hn::Mask<decltype(d32)>;
using Lanes = decltype(hn::SetTableIndices(d32, static_cast<const uint32_t *>(nullptr)));

constexpr size_t GroupWords = hn::MaxLanes(decltype(d32)());

// Words are asked for this far ahead; the processor by itself looks less far than the loop runs.
constexpr size_t WordsAhead = 512;

// A constant that keeps its register: g++ builds a known one anew in each turn of the loop.
HWY_INLINE Words32 constant(uint32_t value)
{
    const volatile uint32_t hidden = value;
    return hn::Set(d32, hidden);
}

// The upper seven bits of a word, its special bit and channel, give its kind. Their upper three pick a row: the
// word is valid from First on, `Valid` times, and its code is Add more than the seven bits.
struct Kinds
{
    Bytes First, Valid, Add;
};

template <MeasMode mode>
HWY_INLINE Kinds kindsOf(const DecodeRules &rules)
{
    const int inputs = static_cast<int>(std::min(rules.NumChans, 64u));
    const auto inputsFrom = [&](int channel) {
        return static_cast<uint8_t>(std::clamp(inputs - channel, 0, 16));
    };
    constexpr uint8_t special = 64, firstSpecial = mode == MeasMode::T2 ? special : special + 1;
    constexpr uint8_t overflow = special + Word::OverflowChannel;
    // Rows 0 to 3: inputs. Row 4: sync and markers. Row 7: the overflow record.
    alignas(16) const uint8_t first[16] = {0, 16, 32, 48, firstSpecial, 0, 0, overflow};
    alignas(16) const uint8_t valid[16] = {inputsFrom(0),
                                           inputsFrom(16),
                                           inputsFrom(32),
                                           inputsFrom(48),
                                           special + Word::MaxMarker + 1 - firstSpecial,
                                           0,
                                           0,
                                           1};
    alignas(16) const uint8_t add[16] = {1, 1, 1, 1, 64, 0, 0, 128};
    return {hn::Load(d8, first), hn::Load(d8, valid), hn::Load(d8, add)};
}

struct Group
{
    Words32 Low, Wraps;
    Bytes Codes;
    hn::Mask<decltype(d8)> Valid;
};

struct WordFields
{
    Words32 Overflow = constant(64 + Word::OverflowChannel);
    Words32 Timetag = constant(0x1FFFFFF);
    Words32 Nsync = constant(0x3FF);
    Bytes Sync = hn::U8FromU32(constant(64));
};

template <MeasMode mode>
HWY_INLINE Group takeApart(Words32 words, const WordFields &fields, const Kinds &kinds)
{
    const auto top = hn::ShiftRight<25>(words);
    const auto topBytes = hn::U8FromU32(top);
    const auto row = hn::ShiftRight<4>(topBytes);
    const auto isOverflow = hn::Eq(top, fields.Overflow);
    Group group;
    group.Valid = hn::Lt(hn::Sub(topBytes, hn::TableLookupBytes(kinds.First, row)),
                         hn::TableLookupBytes(kinds.Valid, row));
    group.Codes = hn::Add(topBytes, hn::TableLookupBytes(kinds.Add, row));
    if constexpr (mode == MeasMode::T2) {
        const auto timetag = hn::And(words, fields.Timetag);
        group.Codes = hn::IfThenZeroElse(hn::Eq(topBytes, fields.Sync), group.Codes);
        group.Low = hn::IfThenZeroElse(isOverflow, timetag);
        group.Wraps = hn::IfThenElseZero(isOverflow, timetag);
    } else {
        const auto dtime = hn::ShiftRight<17>(hn::ShiftLeft<7>(words));
        const auto nsyncAbove = hn::ShiftRight<7>(hn::ShiftLeft<22>(words));
        group.Low = hn::Or(dtime, hn::IfThenZeroElse(isOverflow, nsyncAbove));
        group.Wraps = hn::IfThenElseZero(isOverflow, hn::And(words, fields.Nsync));
    }
    return group;
}

alignas(64) constexpr uint32_t BlockEnds[16] = {3, 3, 3, 3, 3, 3, 3, 3, 11, 11, 11, 11, 11, 11, 11, 11};
alignas(64) constexpr uint32_t PairEnds[16] = {7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7};

// Makes lane i the sum of lanes 0 to i.
struct PrefixSum
{
    Mask32 InOddBlock = hn::TestBit(hn::Iota(d32, 0), hn::Set(d32, 4));
    Mask32 InUpperPair = hn::TestBit(hn::Iota(d32, 0), hn::Set(d32, 8));
    Lanes BlockEnd = hn::SetTableIndices(d32, BlockEnds);
    Lanes PairEnd = hn::SetTableIndices(d32, PairEnds);

    HWY_INLINE Words32 operator()(Words32 sums) const
    {
        sums = hn::Add(sums, hn::ShiftLeftLanes<1>(d32, sums));
        sums = hn::Add(sums, hn::ShiftLeftLanes<2>(d32, sums));
        // Each block of four lanes is right by itself now. Every other block takes the sum of the one before
        // it, then the upper pair of blocks that of the lower pair.
        sums = hn::Add(sums, hn::IfThenElseZero(InOddBlock, hn::TableLookupLanes(sums, BlockEnd)));
        if constexpr (GroupWords == 16)
            sums = hn::Add(sums, hn::IfThenElseZero(InUpperPair, hn::TableLookupLanes(sums, PairEnd)));
        return sums;
    }
};

HWY_INLINE uint32_t lastLane(Words32 v)
{
    return hn::GetLane(hn::Reverse(d32, v));
}
HWY_INLINE Words64 lowerHalf(Words32 v)
{
    return hn::PromoteTo(d64, hn::LowerHalf(v));
}
HWY_INLINE Words64 upperHalf(Words32 v)
{
    return hn::PromoteTo(d64, hn::UpperHalf(hn::Half<decltype(d32)>(), v));
}

// The full product of the lower 32 bits of each lane.
HWY_INLINE Words64 multiplyLower(Words64 a, Words64 b)
{
    return hn::MulEven(hn::BitCast(d32, a), hn::BitCast(d32, b));
}

// From the time fields of a group to its times, all but the term of overflowBase.
template <MeasMode mode>
struct Scale
{
    uint64_t Unit; // T2: SyncPeriodPs

    uint64_t base(uint64_t overflowBase) const
    {
        return mode == MeasMode::T2 ? overflowBase * Unit : overflowBase << dtimeBits;
    }
    // Whether low + (before << 25) and the unit fit in 32 bits.
    bool isNarrow(uint64_t wraps) const { return wraps < 128 && (mode == MeasMode::T3 || Unit >> 32 == 0); }

    HWY_INLINE Words64 narrow(Words64 time) const
    {
        if constexpr (mode == MeasMode::T3) return time;
        return multiplyLower(time, hn::Set(d64, Unit));
    }
    HWY_INLINE Words64 wide(Words64 low, Words64 before) const
    {
        if constexpr (mode == MeasMode::T3) return hn::Add(low, hn::ShiftLeft<25>(before));
        return hn::Add(product(low, Unit), product(before, Unit << 25));
    }
    // The lower 64 bits; each lane of `a` is below 2^32.
    HWY_INLINE Words64 product(Words64 a, uint64_t b) const
    {
        const auto upper = multiplyLower(a, hn::Set(d64, b >> 32));
        return hn::Add(multiplyLower(a, hn::Set(d64, b)), hn::ShiftLeft<32>(upper));
    }
};

template <MeasMode mode>
HWY_INLINE void storeTimes(const Scale<mode> &scale, uint64_t base, Words32 low, Words32 before, uint64_t wraps,
                           uint64_t *times)
{
    Words64 lower, upper;
    if (HWY_LIKELY(scale.isNarrow(wraps))) {
        const auto time = hn::Add(low, hn::ShiftLeft<25>(before));
        lower = scale.narrow(lowerHalf(time));
        upper = scale.narrow(upperHalf(time));
    } else {
        lower = scale.wide(lowerHalf(low), lowerHalf(before));
        upper = scale.wide(upperHalf(low), upperHalf(before));
    }
    const auto baseTime = hn::Set(d64, base);
    hn::StoreU(hn::Add(lower, baseTime), d64, times);
    hn::StoreU(hn::Add(upper, baseTime), d64, times + GroupWords / 2);
}

HWY_INLINE Mask32 wideMask(hn::Mask<decltype(d8)> mask)
{
    return hn::Ne(hn::PromoteTo(d32, hn::VecFromMask(d8, mask)), hn::Zero(d32));
}

// Whether the group has an invalid word that isn't ignored without a trace.
HWY_INLINE bool hasNotable(Words32 words, const Group &group, const DecodeRules &rules)
{
    const auto ignored = hn::Set(d32, rules.IgnoresCode18 ? 64 + Word::IgnoredChannel : 128);
    const auto notable = hn::Ne(hn::ShiftRight<25>(words), ignored);
    return !hn::AllFalse(d32, hn::AndNot(wideMask(group.Valid), notable));
}

// Moves the valid words of a group to its front and gives their number.
HWY_INLINE size_t dropInvalid(Group &group, Words32 &before)
{
    const auto valid = wideMask(group.Valid);
    group.Low = packLanes(d32, group.Low, valid);
    group.Codes = hn::U8FromU32(packLanes(d32, hn::PromoteTo(d32, group.Codes), valid));
    before = packLanes(d32, before, valid);
    return hn::CountTrue(d32, valid);
}

template <MeasMode mode>
uint64_t decodeGroups(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                      uint64_t *times, uint8_t *channels, InvalidWords &invalid)
{
    const Scale<mode> scale{mode == MeasMode::T2 ? rules.SyncPeriodPs : 1};
    const Kinds kinds = kindsOf<mode>(rules);
    const WordFields fields{};
    const PrefixSum prefixSum{};
    uint64_t count = 0;
    size_t done = 0;
    for (; done + GroupWords <= words.size(); done += GroupWords) {
        hwy::Prefetch(words.data() + std::min(done + WordsAhead, words.size() - 1));
        const auto in = hn::LoadU(d32, words.data() + done);
        Group group = takeApart<mode>(in, fields, kinds);
        Words32 before = prefixSum(group.Wraps);
        const uint64_t wraps = lastLane(before);
        size_t kept = GroupWords;
        if (HWY_UNLIKELY(!hn::AllTrue(d8, group.Valid))) {
            if (invalid.hasRoom() && hasNotable(in, group, rules)) {
                count += decodePlain(words.subspan(done, GroupWords), rules, overflowBase, times + count,
                                     channels + count, invalid);
                continue;
            }
            kept = dropInvalid(group, before);
        }
        storeTimes(scale, scale.base(overflowBase), group.Low, before, wraps, times + count);
        hn::StoreU(group.Codes, d8, channels + count);
        overflowBase += wraps << (mode == MeasMode::T2 ? 25 : 10);
        count += kept;
    }
    return count +
           decodePlain(words.subspan(done), rules, overflowBase, times + count, channels + count, invalid);
}

uint64_t decodeTarget(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                      uint64_t *times, uint8_t *channels, InvalidWords &invalid)
{
    switch (rules.Mode) {
    case MeasMode::T2: return decodeGroups<MeasMode::T2>(words, rules, overflowBase, times, channels, invalid);
    case MeasMode::T3: return decodeGroups<MeasMode::T3>(words, rules, overflowBase, times, channels, invalid);
    case MeasMode::Histogramming: break;
    }
    return 0;
}

#else

uint64_t decodeTarget(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                      uint64_t *times, uint8_t *channels, InvalidWords &invalid)
{
    return decodePlain(words, rules, overflowBase, times, channels, invalid);
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(decodeTarget);

uint64_t decode(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                uint64_t *times, uint8_t *channels, InvalidWords &invalid)
{
    return HWY_DYNAMIC_DISPATCH(decodeTarget)(words, rules, overflowBase, times, channels, invalid);
}

} // namespace Tessel
#endif
