// What is known of record words without decoding them, a register at a time: AVX2 or AVX-512, chosen at run
// time, elsewhere word by word. No lock and no thread.
#include "stream/words.h"

#include <algorithm>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stream/word_sums_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// clang-format on

#ifndef TESSEL_WORD_FIELDS // the file is read several times
#define TESSEL_WORD_FIELDS
namespace Tessel {

// What differs between the modes.
struct WordFields
{
    uint32_t Time;                     // mask of the time, or of an overflow's count
    uint32_t FirstSpecial, NumSpecial; // kinds of syncs and markers
    uint32_t NumChans;
};

} // namespace Tessel
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

bool isOverflowWord(uint32_t word)
{
    return word >> 25 == Word::OverflowKind;
}

void scanWord(WordSums &sums, const WordFields &fields, uint32_t word, uint32_t before)
{
    const uint32_t kind = word >> 25, low = word & fields.Time;
    const bool isOver = isOverflowWord(word);
    if (isOver) sums.Overflows += low;
    sums.AllValid &= (kind < fields.NumChans) | (kind - fields.FirstSpecial < fields.NumSpecial) | isOver;
    const uint32_t time = isOver ? 0 : low, timeBefore = isOverflowWord(before) ? 0 : before & fields.Time;
    sums.Ascends &= (time >= timeBefore) | (isOver & (low != 0));
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<uint32_t> lanes32;
const hn::ScalableTag<uint64_t> lanes64;
constexpr size_t groupWords = hn::MaxLanes(decltype(lanes32)());

// Words from `from` on, by groups; gives how far.
size_t scanGroups(WordSums &sums, const WordFields &fields, const uint32_t *words, size_t from, size_t size)
{
    constexpr size_t groups = 64; // of counts of 25 bits: their sum fits into a lane
    const auto overflow = hn::Set(lanes32, Word::OverflowKind), timeMask = hn::Set(lanes32, fields.Time);
    const auto inputs = hn::Set(lanes32, fields.NumChans), zero = hn::Zero(lanes32);
    const auto firstSpecial = hn::Set(lanes32, fields.FirstSpecial),
               specials = hn::Set(lanes32, fields.NumSpecial);
    auto sum = hn::Zero(lanes64);
    auto valid = hn::Eq(zero, zero), ascends = valid;
    size_t i = from;
    while (i + groupWords <= size) {
        const size_t end = std::min(size, i + groups * groupWords);
        auto part = zero;
        for (; i + groupWords <= end; i += groupWords) {
            const auto word = hn::LoadU(lanes32, words + i), before = hn::LoadU(lanes32, words + i - 1);
            const auto kind = hn::ShiftRight<25>(word), low = hn::And(word, timeMask);
            const auto isOver = hn::Eq(kind, overflow), wasOver = hn::Eq(hn::ShiftRight<25>(before), overflow);
            const auto count = hn::IfThenElseZero(isOver, low);
            part = hn::Add(part, count);
            valid = hn::And(valid, hn::Or(hn::Or(hn::Lt(kind, inputs), isOver),
                                          hn::Lt(hn::Sub(kind, firstSpecial), specials)));
            const auto time = hn::IfThenZeroElse(isOver, low);
            const auto timeBefore = hn::IfThenZeroElse(wasOver, hn::And(before, timeMask));
            ascends = hn::And(ascends, hn::Or(hn::Not(hn::Lt(time, timeBefore)), hn::Ne(count, zero)));
        }
        const auto pairs = hn::BitCast(lanes64, part);
        sum = hn::Add(sum, hn::Add(hn::And(pairs, hn::Set(lanes64, UINT32_MAX)), hn::ShiftRight<32>(pairs)));
    }
    sums.Overflows += hn::GetLane(hn::SumOfLanes(lanes64, sum));
    sums.AllValid &= hn::AllTrue(lanes32, valid);
    sums.Ascends &= hn::AllTrue(lanes32, ascends);
    return i;
}

#else

size_t scanGroups(WordSums &, const WordFields &, const uint32_t *, size_t from, size_t)
{
    return from;
}

#endif

WordSums scanAll(const uint32_t *words, size_t size, const WordFields &fields)
{
    WordSums sums;
    if (size == 0) return sums;
    scanWord(sums, fields, words[0], 0);
    for (size_t i = scanGroups(sums, fields, words, 1, size); i < size; ++i)
        scanWord(sums, fields, words[i], words[i - 1]);
    return sums;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(scanAll);

WordSums sumsOf(std::span<const uint32_t> words, MeasMode mode, uint32_t numChans)
{
    const uint32_t inputs = std::min(numChans, 64u);
    const bool isT2 = mode == MeasMode::T2;
    const WordFields fields{.Time = isT2 ? Word::timetag(~0u) : Word::nsync(~0u),
                            .FirstSpecial = isT2 ? Word::SyncKind : Word::FirstMarkerKind,
                            .NumSpecial = Word::MaxMarker + (isT2 ? 1 : 0),
                            .NumChans = inputs};
    WordSums sums = HWY_DYNAMIC_DISPATCH(scanAll)(words.data(), words.size(), fields);
    sums.Overflows <<= isT2 ? 25 : 10;
    return sums;
}

uint64_t overflowsIn(std::span<const uint32_t> words, MeasMode mode)
{
    return sumsOf(words, mode, 0).Overflows;
}

} // namespace Tessel
#endif
