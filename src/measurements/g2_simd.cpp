// Pairs of g2, eight stops at a time, from AVX2 on. No lock and no thread.
//
// Of the stops before a start the newest are in the window, so the lanes that count are the last ones. The
// elements of all lanes are written before those that there are already, and only as many are kept as count:
// nothing branches on how many pairs a start has, up to eight.
#include "measurements/count_elements.h"
#include "measurements/g2_row.h"
#include "measurements/time_ring.h"

#include <array>
#include <bit>
#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measurements/g2_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
#include "stream/exact_division-inl.h"
#include "stream/pack_lanes-inl.h"
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<uint64_t> dTime;
const hn::CappedTag<uint32_t, 8> dElement;
using Times = hn::Vec<decltype(dTime)>;
using Division = ExactDivision<hn::RebindToFloat<decltype(dTime)>>;

constexpr size_t Lanes = hn::MaxLanes(dTime), StopsAtOnce = 8;
constexpr size_t GroupStarts = 128, BufferElements = 2 * GroupStarts * StopsAtOnce;
static_assert(StopsAtOnce <= TimeRing::FrontSpace);

// Of eight lanes the last ones that count, up to the first that doesn't: the search ends there.
constexpr std::array<uint8_t, 256> LeadingOnes = [] {
    std::array<uint8_t, 256> counts{};
    for (unsigned lanes = 0; lanes < 256; ++lanes)
        counts[lanes] = static_cast<uint8_t>(std::countl_one(static_cast<uint8_t>(lanes)));
    return counts;
}();

// Which lanes are in the window, and their quotients as the lower half of each.
HWY_INLINE unsigned inWindow(const uint64_t *stops, Times start, Times span, const Division &division,
                             Times &bins)
{
    const auto distances = hn::Sub(start, hn::LoadU(dTime, stops));
    bins = division(distances);
    uint8_t bits[8];
    hn::StoreMaskBits(dTime, hn::Lt(distances, span), bits);
    return bits[0];
}

// Of the eight stops before `stops`: writes the elements, and gives how many of the last ones count.
HWY_INLINE size_t elementsOf(const uint64_t *stops, Times start, Times span, const Division &division,
                             uint32_t *elements)
{
    const hn::RepartitionToNarrow<decltype(dTime)> dHalves;
    Times bins;
#if HWY_TARGET <= HWY_AVX3
    const unsigned counts = inWindow(stops - Lanes, start, span, division, bins);
    const auto halves = hn::BitCast(dHalves, bins);
    hn::StoreU(hn::LowerHalf(dElement, hn::ConcatEven(dHalves, halves, halves)), dElement, elements);
#else
    Times older;
    unsigned counts = inWindow(stops - 2 * Lanes, start, span, division, older);
    counts |= inWindow(stops - Lanes, start, span, division, bins) << Lanes;
    hn::StoreU(hn::ConcatEven(dElement, hn::BitCast(dHalves, bins), hn::BitCast(dHalves, older)), dElement,
               elements);
#endif
    return LeadingOnes[counts];
}

bool countG2Target(const G2Row &row, G2Found &found)
{
    if (row.Span >= Division::Limit) return false;
    const Division division(row.BinWidth);
    const auto span = hn::Set(dTime, row.Span);
    uint32_t buffer[BufferElements], *const end = buffer + BufferElements;
    uint32_t *elements = end; // written so far, from here to the end
    const auto makeRoom = [&](size_t wanted) {
        if (static_cast<size_t>(elements - buffer) >= wanted) return;
        const auto pairs = static_cast<uint64_t>(end - elements);
        countElements(elements, pairs, row.Counts);
        found.Pairs += pairs;
        elements = end;
    };
    for (uint64_t i = 0; i < row.Count; ++i) {
        if (i % GroupStarts == 0) makeRoom(GroupStarts * StopsAtOnce);
        const uint64_t *stops = row.Stops + row.Seen[i];
        const auto start = hn::Set(dTime, row.Starts[i]);
        for (const uint64_t *same = stops; HWY_UNLIKELY(same[-1] == row.Starts[i]); --same) ++found.Equal;
        size_t last = elementsOf(stops, start, span, division, elements - StopsAtOnce);
        elements -= last;
        while (last == StopsAtOnce) {
            makeRoom(GroupStarts * StopsAtOnce); // for the starts that come too
            stops -= StopsAtOnce;
            last = elementsOf(stops, start, span, division, elements - StopsAtOnce);
            elements -= last;
        }
    }
    makeRoom(BufferElements);
    return true;
}

const hn::CappedTag<uint64_t, 4> dFour;
const hn::Rebind<uint8_t, decltype(dElement)> dChannel;

// For each choice of four times the places of their halves, packed.
constexpr std::array<std::array<uint32_t, 8>, 16> PackedHalves = [] {
    std::array<std::array<uint32_t, 8>, 16> places{};
    for (uint32_t choice = 0; choice < 16; ++choice)
        for (uint32_t lane = 0, place = 0; lane < 4; ++lane)
            if (choice >> lane & 1)
                for (uint32_t half = 0; half < 2; ++half) places[choice][place++] = 2 * lane + half;
    return places;
}();

// For each choice of eight events, in byte k the number of the first k + 1 that are chosen.
constexpr std::array<uint64_t, 256> ChosenUpTo = [] {
    std::array<uint64_t, 256> counts{};
    for (uint64_t choice = 0; choice < 256; ++choice)
        for (uint64_t lane = 0, count = 0; lane < 8; ++lane) {
            count += choice >> lane & 1;
            counts[choice] |= count << (8 * lane);
        }
    return counts;
}();

HWY_INLINE void appendTimes(const uint64_t *times, unsigned choice, uint64_t *to)
{
    const auto places = hn::IndicesFromVec(dElement, hn::LoadU(dElement, PackedHalves[choice].data()));
    const auto halves = hn::BitCast(dElement, hn::LoadU(dFour, times));
    hn::StoreU(hn::BitCast(dFour, hn::TableLookupLanes(halves, places)), dFour, to);
}

// Seen by the chosen events: `before` and the count in the byte of each.
HWY_INLINE void appendSeen(uint64_t counts, uint32_t before, unsigned choice, uint32_t *to)
{
    const auto seen = hn::PromoteTo(dElement, hn::LoadU(dChannel, reinterpret_cast<const uint8_t *>(&counts)));
    const auto all = hn::Add(seen, hn::Set(dElement, before));
    hn::StoreU(packChoice(dElement, all, static_cast<uint8_t>(choice)), dElement, to);
}

HWY_INLINE unsigned choiceOf(const uint8_t *channels, uint64_t channel)
{
    uint8_t bits[8];
    const auto wanted = hn::Set(dChannel, static_cast<uint8_t>(channel));
    hn::StoreMaskBits(dChannel, hn::Eq(hn::LoadU(dChannel, channels), wanted), bits);
    return channel < 256 ? bits[0] : 0u;
}

uint64_t splitG2Target(const uint64_t *times, const uint8_t *channels, uint64_t count, G2Split &split)
{
    constexpr uint64_t events = 8;
    static_assert(events <= G2Split::Behind && G2Split::Behind <= TimeRing::BackSpace);
    const auto [chan1, chan2] = split.Channels;
    uint64_t *const first = split.Times[0], *const second = split.Times[1];
    uint32_t *const firstSeen = split.Seen[0], *const secondSeen = split.Seen[1];
    auto [count1, count2] = split.Count;
    uint64_t done = 0;
    for (; done + events <= count; done += events) {
        const unsigned choice1 = choiceOf(channels + done, chan1), choice2 = choiceOf(channels + done, chan2);
        appendSeen(ChosenUpTo[choice2] << 8, count2, choice1, firstSeen + count1);
        appendSeen(ChosenUpTo[choice1], count1, choice2, secondSeen + count2);
        appendTimes(times + done, choice1 & 15, first + count1);
        appendTimes(times + done, choice2 & 15, second + count2);
        appendTimes(times + done + 4, choice1 >> 4, first + count1 + hwy::PopCount(choice1 & 15));
        appendTimes(times + done + 4, choice2 >> 4, second + count2 + hwy::PopCount(choice2 & 15));
        count1 += static_cast<uint32_t>(hwy::PopCount(choice1));
        count2 += static_cast<uint32_t>(hwy::PopCount(choice2));
    }
    split.Count = {count1, count2};
    return done;
}

#else

uint64_t splitG2Target(const uint64_t *, const uint8_t *, uint64_t, G2Split &)
{
    return 0;
}

bool countG2Target(const G2Row &, G2Found &)
{
    return false;
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(countG2Target);
HWY_EXPORT(splitG2Target);

uint64_t splitG2Registers(const uint64_t *times, const uint8_t *channels, uint64_t count, G2Split &split)
{
    return HWY_DYNAMIC_DISPATCH(splitG2Target)(times, channels, count, split);
}

bool countG2Registers(const G2Row &row, G2Found &found)
{
    return HWY_DYNAMIC_DISPATCH(countG2Target)(row, found);
}

} // namespace Tessel
#endif
