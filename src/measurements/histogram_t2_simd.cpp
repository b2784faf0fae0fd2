// Counting of T2 events a register at a time, from AVX2 on. No lock and no thread.
//
// The time of the reference before each event is that of a lane of the same register, or of an earlier one: a
// table says which, by the lanes that are references. The division is one of doubles, which is exact as long as
// distances are below 2^50. As in T3 nothing branches on an event, and the elements are counted afterwards.
#include "measurements/count_elements.h"
#include "measurements/histogram_count.h"
#include "stream/event_store.h"

#include <algorithm>
#include <array>
#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measurements/histogram_t2_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/pack_lanes-inl.h"
#include "stream/exact_division-inl.h"
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

// Four times in a register, as the table has them; with more lanes it would not stay in the cache.
const hn::CappedTag<uint64_t, 4> dTime;
const hn::RebindToSigned<decltype(dTime)> dSigned;
const hn::RepartitionToNarrow<decltype(dTime)> dHalf;
const hn::Rebind<uint32_t, decltype(dTime)> dBin;
const hn::Rebind<uint8_t, decltype(dTime)> dChannel;
const hn::CappedTag<uint32_t, 8> dElement;
const hn::Rebind<uint8_t, decltype(dElement)> dElementChannel;
using Times = hn::Vec<decltype(dTime)>;
using Division = ExactDivision<hn::RebindToFloat<decltype(dTime)>>;

constexpr size_t Lanes = 4, GroupEvents = 2 * Lanes, BlockEvents = 256;

// Which lane has the last reference before each lane, and the last of all; as places of its halves. No lane has
// one where None is all bits.
struct alignas(32) LastReferences
{
    uint32_t Before[2 * Lanes], Last[2 * Lanes];
    uint64_t NoneBefore[Lanes], None[Lanes];
};

// For each choice of lanes that are references.
constexpr std::array<LastReferences, 1 << Lanes> ReferencesOf = [] {
    std::array<LastReferences, 1 << Lanes> table{};
    for (uint32_t choice = 0; choice < table.size(); ++choice) {
        LastReferences &entry = table[choice];
        auto lastBelow = [choice](size_t end) {
            uint32_t last = Lanes;
            for (uint32_t lane = 0; lane < end; ++lane)
                if (choice >> lane & 1) last = lane;
            return last;
        };
        for (size_t lane = 0; lane < Lanes; ++lane)
            for (uint32_t half = 0; half < 2; ++half) {
                entry.Before[2 * lane + half] = 2 * (lastBelow(lane) % Lanes) + half;
                entry.Last[2 * lane + half] = 2 * (lastBelow(Lanes) % Lanes) + half;
                entry.NoneBefore[lane] = lastBelow(lane) == Lanes ? ~uint64_t{0} : 0;
                entry.None[lane] = choice == 0 ? ~uint64_t{0} : 0;
            }
    }
    return table;
}();

struct Counting
{
    Times RefChan, Rows, Limit; // Limit: the first distance without a bin
    Division Divide;
    hn::Vec<decltype(dElement)> NumBins;
    Times LastRef; // of the events before, in each lane
};

HWY_INLINE Times lookedUp(Times times, const uint32_t *halves, const uint64_t *none, Times otherwise)
{
    const auto places = hn::IndicesFromVec(dHalf, hn::Load(dHalf, halves));
    const auto found = hn::BitCast(dTime, hn::TableLookupLanes(hn::BitCast(dHalf, times), places));
    return hn::IfVecThenElse(hn::Load(dTime, none), otherwise, found);
}

struct Bins
{
    Times Bin;       // the lower half of each lane
    unsigned Counts; // bit k: event k has that bin
};

HWY_INLINE unsigned bitsOf(hn::Mask<decltype(dTime)> mask)
{
    uint8_t bits[8];
    hn::StoreMaskBits(dTime, mask, bits);
    return bits[0];
}

// Of as many events as a register of times has.
HWY_INLINE Bins binsOf(const uint64_t *times, const uint8_t *channels, Counting &counting)
{
    const auto time = hn::LoadU(dTime, times);
    const auto channel = hn::PromoteTo(dTime, hn::PromoteTo(dBin, hn::LoadU(dChannel, channels)));
    const LastReferences &places = ReferencesOf[bitsOf(hn::Eq(channel, counting.RefChan))];
    const auto reference = lookedUp(time, places.Before, places.NoneBefore, counting.LastRef);
    counting.LastRef = lookedUp(time, places.Last, places.None, counting.LastRef);
    const auto distance = hn::Sub(time, reference);
    const auto hasRow = hn::Lt(hn::BitCast(dSigned, channel), hn::BitCast(dSigned, counting.Rows));
    const auto counts = hn::And(hn::And(hn::RebindMask(dTime, hasRow), hn::Lt(distance, counting.Limit)),
                                hn::Ne(reference, hn::Zero(dTime)));
    return {counting.Divide(distance), bitsOf(counts)};
}

// The elements that the events of a block add to, packed; their number.
HWY_INLINE size_t elementsOf(const uint64_t *times, const uint8_t *channels, Counting &counting,
                             uint32_t *elements)
{
    size_t found = 0;
    for (size_t i = 0; i < BlockEvents; i += GroupEvents) {
        const Bins low = binsOf(times + i, channels + i, counting);
        const Bins high = binsOf(times + i + Lanes, channels + i + Lanes, counting);
        const auto row = hn::PromoteTo(dElement, hn::LoadU(dElementChannel, channels + i));
        const auto element =
            hn::Add(hn::ConcatEven(dElement, hn::BitCast(dElement, high.Bin), hn::BitCast(dElement, low.Bin)),
                    hn::Mul(row, counting.NumBins));
        const unsigned choice = low.Counts | high.Counts << Lanes;
        hn::StoreU(packChoice(dElement, element, static_cast<uint8_t>(choice)), dElement, elements + found);
        found += hwy::PopCount(choice);
    }
    return found;
}

uint64_t countT2Target(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                       const T2Counting &counting, uint64_t last)
{
    constexpr uint64_t noChannel = 256;
    const uint64_t rows = std::min<uint64_t>(counting.Rows, ChannelCode::Special); // as isCounted says
    if (last >= Division::Limit - 1 || counting.NumBins > INT32_MAX / ChannelCode::Special) return 0;
    Counting block{hn::Set(dTime, counting.RefChan < rows ? counting.RefChan : noChannel),
                   hn::Set(dTime, rows),
                   hn::Set(dTime, last + 1),
                   Division(counting.BinWidth),
                   hn::Set(dElement, static_cast<uint32_t>(counting.NumBins)),
                   hn::Set(dTime, counting.LastRefTime)};
    uint32_t elements[BlockEvents];
    uint64_t done = 0;
    for (; done + BlockEvents <= count; done += BlockEvents)
        countElements(elements, elementsOf(times + done, channels + done, block, elements), histo);
    counting.LastRefTime = hn::GetLane(block.LastRef);
    return done;
}

#else

uint64_t countT2Target(const uint64_t *, const uint8_t *, uint64_t, uint32_t *, const T2Counting &, uint64_t)
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

HWY_EXPORT(countT2Target);

uint64_t countT2Blocks(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                       const T2Counting &counting, uint64_t last)
{
    return HWY_DYNAMIC_DISPATCH(countT2Target)(times, channels, count, histo, counting, last);
}

} // namespace Tessel
#endif
