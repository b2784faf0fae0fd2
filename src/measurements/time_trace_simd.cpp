// Distances and elements of a block of a time trace, from AVX2 on. No lock and no thread.
#include "measurements/time_trace_block.h"
#include "stream/event_store.h"
#include "stream/times.h"

#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measurements/time_trace_simd.cpp"
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

const hn::CappedTag<uint64_t, 4> dTime;
const hn::RebindToSigned<decltype(dTime)> dSigned;
const hn::RebindToFloat<decltype(dTime)> dReal;
const hn::RepartitionToNarrow<decltype(dTime)> dHalf;
const hn::Rebind<int32_t, decltype(dTime)> dWhole;
const hn::Rebind<uint32_t, decltype(dTime)> dBin;
const hn::Rebind<uint8_t, decltype(dTime)> dChannel;
const hn::CappedTag<uint32_t, 8> dElement;
const hn::Rebind<uint8_t, decltype(dElement)> dElementChannel;
using Times = hn::Vec<decltype(dTime)>;
using Signed = hn::Vec<decltype(dSigned)>;

constexpr size_t Lanes = 4, GroupEvents = 2 * Lanes;

struct T2Distance
{
    Times From;

    HWY_INLINE Times of(Times raw) const { return hn::Sub(raw, From); }
    static HWY_INLINE Times tooFar(Times) { return hn::Zero(dTime); }
};

// Of syncs that are less than 2^32 after the first; a period and the largest dtime are below 2^31 ps.
struct T3Distance
{
    Times FirstSync, Period, BehindSync; // BehindSync: ps from the first sync to the start
    hn::Vec<decltype(dReal)> Resolution;

    HWY_INLINE Times syncs(Times raw) const { return hn::Sub(hn::ShiftRight<dtimeBits>(raw), FirstSync); }
    HWY_INLINE Times of(Times raw) const
    {
        const auto dtime = hn::And(raw, hn::Set(dTime, dtimeMask));
        const auto real = hn::Sub(hn::BitCast(dReal, hn::Or(dtime, hn::Set(dTime, uint64_t{0x433} << 52))),
                                  hn::Set(dReal, 0x1p52));
        const auto dtimePs = hn::PromoteTo(dSigned, hn::DemoteTo(dWhole, hn::Mul(real, Resolution)));
        const auto syncPs = hn::MulEven(hn::BitCast(dHalf, syncs(raw)), hn::BitCast(dHalf, Period));
        return hn::Sub(hn::Add(syncPs, hn::BitCast(dTime, dtimePs)), BehindSync);
    }
    HWY_INLINE Times tooFar(Times raw) const { return hn::ShiftRight<32>(syncs(raw)); }
};

template <class Distance>
HWY_INLINE bool findAll(TraceBlock &block, const Distance distance, const uint64_t *times,
                        const uint8_t *channels)
{
    auto tooFar = hn::Zero(dTime);
    Signed least = hn::Set(dSigned, INT64_MAX), most = hn::Set(dSigned, -1);
    for (size_t i = 0; i < TraceBlock::Events; i += Lanes) {
        const auto raw = hn::LoadU(dTime, times + i);
        const auto found = distance.of(raw);
        hn::StoreU(found, dTime, block.Distances + i);
        const auto channel =
            hn::BitCast(dSigned, hn::PromoteTo(dTime, hn::PromoteTo(dBin, hn::LoadU(dChannel, channels + i))));
        const auto isMarker = hn::And(hn::Gt(channel, hn::Set(dSigned, ChannelCode::Special - 1)),
                                      hn::Lt(channel, hn::Set(dSigned, ChannelCode::Overflow)));
        const auto signedFound = hn::BitCast(dSigned, found);
        least = hn::Min(least, hn::IfThenElse(isMarker, least, signedFound));
        most = hn::Max(most, hn::IfThenElse(isMarker, most, signedFound));
        const auto beyond = hn::Or(hn::ShiftRight<50>(found), distance.tooFar(raw));
        tooFar = hn::Or(tooFar, hn::IfThenZeroElse(hn::RebindMask(dTime, isMarker), beyond));
    }
    block.Least = static_cast<uint64_t>(hn::GetLane(hn::MinOfLanes(dSigned, least)));
    block.Most = static_cast<uint64_t>(hn::GetLane(hn::MaxOfLanes(dSigned, most)));
    return hn::AllTrue(dTime, hn::Eq(tooFar, hn::Zero(dTime))) && block.Most != UINT64_MAX;
}

bool findDistancesTarget(TraceBlock &block, const TraceScale &scale, const uint64_t *times,
                         const uint8_t *channels)
{
    constexpr uint64_t limit = uint64_t{1} << 31;
    if (scale.FromPs > INT64_MAX) return false; // times might begin anew behind it
    if (!scale.IsT3) return findAll(block, T2Distance{hn::Set(dTime, scale.FromPs)}, times, channels);
    if (scale.PeriodPs == 0 || scale.PeriodPs >= limit || scale.Resolution * dtimeMask >= limit) return false;
    const uint64_t firstSync = scale.FromPs / scale.PeriodPs;
    const T3Distance distance{hn::Set(dTime, firstSync), hn::Set(dTime, scale.PeriodPs),
                              hn::Set(dTime, scale.FromPs - firstSync * scale.PeriodPs),
                              hn::Set(dReal, scale.Resolution)};
    return findAll(block, distance, times, channels);
}

uint64_t findElementsTarget(const TraceBlock &block, const TraceColumns &columns, uint64_t countedRows,
                            const uint8_t *channels, uint32_t *elements)
{
    const ExactDivision<decltype(dReal)> division(columns.BinWidth);
    const auto skipped = hn::Set(dTime, columns.Skipped);
    const auto numBins = hn::Set(dElement, static_cast<uint32_t>(columns.NumBins));
    const auto origin = hn::Set(dElement, static_cast<uint32_t>(columns.Origin));
    const auto rows = hn::Set(dElement, static_cast<uint32_t>(columns.Rows));
    const auto counted = hn::Set(dElement, static_cast<uint32_t>(countedRows));
    const auto dElementSigned = hn::RebindToSigned<decltype(dElement)>();
    uint64_t found = 0;
    for (size_t i = 0; i < TraceBlock::Events; i += GroupEvents) {
        const auto low = division(hn::Sub(hn::LoadU(dTime, block.Distances + i), skipped));
        const auto high = division(hn::Sub(hn::LoadU(dTime, block.Distances + i + Lanes), skipped));
        const auto place =
            hn::Add(hn::ConcatEven(dElement, hn::BitCast(dElement, high), hn::BitCast(dElement, low)), origin);
        const auto column = hn::Min(place, hn::Sub(place, numBins)); // the latter wraps where it isn't to be
        const auto channel = hn::PromoteTo(dElement, hn::LoadU(dElementChannel, channels + i));
        const auto counts = hn::RebindMask(
            dElement, hn::Lt(hn::BitCast(dElementSigned, channel), hn::BitCast(dElementSigned, counted)));
        const auto element = hn::Add(hn::Mul(column, rows), channel);
        hn::StoreU(packLanes(dElement, element, counts), dElement, elements + found);
        found += hn::CountTrue(dElement, counts);
    }
    return found;
}

#else

bool findDistancesTarget(TraceBlock &, const TraceScale &, const uint64_t *, const uint8_t *)
{
    return false;
}

uint64_t findElementsTarget(const TraceBlock &, const TraceColumns &, uint64_t, const uint8_t *, uint32_t *)
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

HWY_EXPORT(findDistancesTarget);
HWY_EXPORT(findElementsTarget);

bool findDistances(TraceBlock &block, const TraceScale &scale, const uint64_t *times, const uint8_t *channels)
{
    return HWY_DYNAMIC_DISPATCH(findDistancesTarget)(block, scale, times, channels);
}

uint64_t findElements(const TraceBlock &block, const TraceColumns &columns, uint64_t countedRows,
                      const uint8_t *channels, uint32_t *elements)
{
    return HWY_DYNAMIC_DISPATCH(findElementsTarget)(block, columns, countedRows, channels, elements);
}

} // namespace Tessel
#endif
