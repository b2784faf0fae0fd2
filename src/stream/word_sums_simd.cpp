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

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

// The sum of the counts of the overflow records, whose field `count` picks.
uint64_t sumOfPlain(const uint32_t *words, size_t size, uint32_t count)
{
    uint64_t sum = 0;
    for (size_t i = 0; i < size; ++i)
        if (words[i] >> 25 == Word::OverflowKind) sum += words[i] & count;
    return sum;
}

bool areValidPlain(const uint32_t *words, size_t size, uint32_t numChans)
{
    bool valid = true;
    for (size_t i = 0; i < size; ++i) {
        const uint32_t kind = words[i] >> 25;
        valid &=
            (kind < numChans) | (kind - Word::FirstMarkerKind < Word::MaxMarker) | (kind == Word::OverflowKind);
    }
    return valid;
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<uint32_t> lanes32;
const hn::ScalableTag<uint64_t> lanes64;
constexpr size_t groupWords = hn::MaxLanes(decltype(lanes32)());

uint64_t sumOf(const uint32_t *words, size_t size, uint32_t count)
{
    constexpr size_t groups = 64; // of 25 bits: their sum fits into a lane
    const auto kind = hn::Set(lanes32, Word::OverflowKind), field = hn::Set(lanes32, count);
    auto sum = hn::Zero(lanes64);
    size_t i = 0;
    while (i + groupWords <= size) {
        const size_t end = std::min(size, i + groups * groupWords);
        auto part = hn::Zero(lanes32);
        for (; i + groupWords <= end; i += groupWords) {
            const auto word = hn::LoadU(lanes32, words + i);
            const auto isOverflow = hn::Eq(hn::ShiftRight<25>(word), kind);
            part = hn::Add(part, hn::IfThenElseZero(isOverflow, hn::And(word, field)));
        }
        const auto pairs = hn::BitCast(lanes64, part);
        sum = hn::Add(sum, hn::Add(hn::And(pairs, hn::Set(lanes64, UINT32_MAX)), hn::ShiftRight<32>(pairs)));
    }
    return hn::GetLane(hn::SumOfLanes(lanes64, sum)) + sumOfPlain(words + i, size - i, count);
}

bool areValid(const uint32_t *words, size_t size, uint32_t numChans)
{
    const auto inputs = hn::Set(lanes32, numChans), overflow = hn::Set(lanes32, Word::OverflowKind);
    const auto firstMarker = hn::Set(lanes32, Word::FirstMarkerKind),
               markers = hn::Set(lanes32, Word::MaxMarker);
    auto invalid = hn::Zero(lanes32);
    size_t i = 0;
    for (; i + groupWords <= size; i += groupWords) {
        const auto kind = hn::ShiftRight<25>(hn::LoadU(lanes32, words + i));
        const auto valid = hn::Or(hn::Or(hn::Lt(kind, inputs), hn::Eq(kind, overflow)),
                                  hn::Lt(hn::Sub(kind, firstMarker), markers));
        invalid = hn::Or(invalid, hn::IfThenZeroElse(valid, hn::Set(lanes32, 1)));
    }
    return hn::AllTrue(lanes32, hn::Eq(invalid, hn::Zero(lanes32))) &&
           areValidPlain(words + i, size - i, numChans);
}

#else

uint64_t sumOf(const uint32_t *words, size_t size, uint32_t count)
{
    return sumOfPlain(words, size, count);
}

bool areValid(const uint32_t *words, size_t size, uint32_t numChans)
{
    return areValidPlain(words, size, numChans);
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(sumOf);
HWY_EXPORT(areValid);

uint64_t overflowsIn(std::span<const uint32_t> words, MeasMode mode)
{
    if (mode == MeasMode::T2)
        return HWY_DYNAMIC_DISPATCH(sumOf)(words.data(), words.size(), Word::timetag(~0u)) << 25;
    return HWY_DYNAMIC_DISPATCH(sumOf)(words.data(), words.size(), Word::nsync(~0u)) << 10;
}

bool areAllValidT3(std::span<const uint32_t> words, uint32_t numChans)
{
    return HWY_DYNAMIC_DISPATCH(areValid)(words.data(), words.size(), std::min(numChans, 64u));
}

} // namespace Tessel
#endif
