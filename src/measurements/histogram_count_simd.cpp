// Counting of T3 events: the elements that they add to are worked out a register at a time, then counted one by
// one. Below AVX2 the plain loop does it. No lock and no thread.
//
// Which events count is as random as the light that they come from, so nothing branches on it: the elements of
// those that count are packed together. The two passes take turns in blocks so small that the processor, which
// looks ahead, waits for events and for elements at the same time.
#include "measurements/count_elements.h"
#include "measurements/histogram_count.h"
#include "stream/event_store.h"
#include "stream/times.h"

#include <algorithm>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measurements/histogram_count_simd.cpp"
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

// Not more: packed registers of 64 bytes mostly cross a line of the cache, which costs more than they gain.
const hn::CappedTag<uint32_t, 8> d32;
const hn::CappedTag<uint64_t, 4> d64;
const hn::Rebind<uint8_t, decltype(d32)> d8;
using Words32 = hn::Vec<decltype(d32)>;

constexpr size_t GroupEvents = hn::MaxLanes(d32);
constexpr size_t BlockEvents = 256;
constexpr size_t EventsAhead = 512; // are asked for while a block is worked on

// The lower half of the time of each event.
HWY_INLINE Words32 lowTimes(const uint64_t *times)
{
    const auto first = hn::BitCast(d32, hn::LoadU(d64, times));
    const auto second = hn::BitCast(d32, hn::LoadU(d64, times + GroupEvents / 2));
    return hn::ConcatEven(d32, second, first);
}

// The shape of the array, in each lane. Rows is at most 128, where the markers begin.
struct Shape
{
    Words32 NumBins, Rows;
};

// Packs the elements that the events of a block add to and gives their number. Whole registers are written, but
// never past BlockEvents, as there are no more elements than events so far.
HWY_INLINE size_t elementsOf(const uint64_t *times, const uint8_t *channels, const Shape &shape,
                             uint32_t *elements)
{
    const auto mask = hn::Set(d32, static_cast<uint32_t>(dtimeMask));
    const auto dSigned = hn::RebindToSigned<decltype(d32)>();
    size_t found = 0;
    for (size_t i = 0; i < BlockEvents; i += GroupEvents) {
        const auto bin = hn::And(lowTimes(times + i), mask);
        const auto channel = hn::PromoteTo(d32, hn::LoadU(d8, channels + i));
        const auto hasRow = hn::Lt(hn::BitCast(dSigned, channel), hn::BitCast(dSigned, shape.Rows));
        const auto hasBin = hn::Lt(hn::BitCast(dSigned, bin), hn::BitCast(dSigned, shape.NumBins));
        const auto counts = hn::RebindMask(d32, hn::And(hasRow, hasBin));
        const auto element = hn::Add(bin, hn::Mul(channel, shape.NumBins));
        hn::StoreU(packLanes(d32, element, counts), d32, elements + found);
        found += hn::CountTrue(d32, counts);
    }
    return found;
}

HWY_INLINE void askFor(const uint64_t *times, const uint8_t *channels)
{
    constexpr size_t line = 64;
    for (size_t i = 0; i < BlockEvents; i += line / sizeof(uint64_t)) hwy::Prefetch(times + i);
    for (size_t i = 0; i < BlockEvents; i += line) hwy::Prefetch(channels + i);
}

void countT3Target(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                   uint64_t numBins, uint64_t rows)
{
    const uint64_t countedRows = std::min<uint64_t>(rows, ChannelCode::Special);
    uint64_t done = 0;
    if (numBins <= INT32_MAX / ChannelCode::Special) { // so that each element fits in 31 bits
        const Shape shape{hn::Set(d32, static_cast<uint32_t>(numBins)),
                          hn::Set(d32, static_cast<uint32_t>(countedRows))};
        alignas(64) uint32_t elements[BlockEvents];
        for (; done + BlockEvents <= count; done += BlockEvents) {
            const uint64_t ahead = std::min(done + EventsAhead, count - BlockEvents);
            askFor(times + ahead, channels + ahead);
            const size_t found = elementsOf(times + done, channels + done, shape, elements);
            countElements(elements, found, histo);
        }
    }
    countT3Plain(times + done, channels + done, count - done, histo, numBins, rows);
}

#else

void countT3Target(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                   uint64_t numBins, uint64_t rows)
{
    countT3Plain(times, channels, count, histo, numBins, rows);
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(countT3Target);

void countT3(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo, uint64_t numBins,
             uint64_t rows)
{
    HWY_DYNAMIC_DISPATCH(countT3Target)(times, channels, count, histo, numBins, rows);
}

} // namespace Tessel
#endif
