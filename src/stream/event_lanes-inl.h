// Events a register at a time, for the loops of stages: channels looked up in a set, picosecond times, and
// eight events written with what stays of them. Compiled anew for each instruction set of the file that
// includes it, from AVX2 on. No lock and no thread.
#if defined(TESSEL_EVENT_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef TESSEL_EVENT_LANES_INL_H
#undef TESSEL_EVENT_LANES_INL_H
#else
#define TESSEL_EVENT_LANES_INL_H
#endif

#include "stream/event_places.h"
#include "stream/times.h"

#include <hwy/highway.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr size_t TimeLanes = hn::MaxLanes(hn::ScalableTag<uint64_t>());
constexpr size_t ChannelLanes = 32;
constexpr size_t LanesWritten = 16; // by writeEvents, whatever stays

const hn::ScalableTag<uint64_t> dTimes;
const hn::CappedTag<uint8_t, ChannelLanes> dChannels;
using Times = hn::Vec<decltype(dTimes)>;
using Channels = hn::Vec<decltype(dChannels)>;

// A bit for each lane, the first lane's lowest. Read in the width in which it was written.
template <class D, class M>
HWY_INLINE uint32_t bitsOf(D d, M mask)
{
    constexpr size_t lanes = hn::MaxLanes(D());
    static_assert(lanes <= 8 || lanes == 32);
    uint8_t bytes[8];
    hn::StoreMaskBits(d, mask, bytes);
    if constexpr (lanes <= 8) {
        return bytes[0] & ((1u << lanes) - 1);
    } else {
        uint32_t bits;
        std::memcpy(&bits, bytes, sizeof bits);
        return bits;
    }
}

// A set of channels: for the lower half of a channel number the upper halves that are in the set, a bit each.
class ChannelSet
{
public:
    explicit ChannelSet(const std::array<uint8_t, 256> &flags)
    {
        alignas(16) uint8_t rows[2][16] = {};
        for (uint32_t channel = 0; channel < 256; ++channel)
            rows[channel >> 7][channel & 15] |=
                static_cast<uint8_t>((flags[channel] != 0) << (channel >> 4 & 7));
        alignas(16) static constexpr uint8_t bits[16] = {1, 2, 4, 8, 16, 32, 64, 128,
                                                         1, 2, 4, 8, 16, 32, 64, 128};
        lower = hn::LoadDup128(dChannels, rows[0]);
        upper = hn::LoadDup128(dChannels, rows[1]);
        bitOf = hn::LoadDup128(dChannels, bits);
    }
    HWY_INLINE uint32_t bits(Channels channels) const
    {
        const auto low = hn::And(channels, hn::Set(dChannels, 15)), high = hn::ShiftRight<4>(channels);
        const auto isUpper = hn::MaskFromVec(hn::BroadcastSignBit(hn::BitCast(dSigned, channels)));
        const auto row = hn::IfThenElse(hn::RebindMask(dChannels, isUpper), hn::TableLookupBytes(upper, low),
                                        hn::TableLookupBytes(lower, low));
        const auto bit = hn::TableLookupBytes(bitOf, high);
        return bitsOf(dChannels, hn::TestBit(row, bit));
    }

private:
    const hn::RebindToSigned<decltype(dChannels)> dSigned;
    Channels lower, upper, bitOf;
};

// The time of the last chosen lane up to each lane; `before` where there is none.
HWY_INLINE Times lastChosen(Times times, uint32_t chosen, Times before)
{
    const auto shifts = hn::ShiftLeft<3>(hn::Iota(dTimes, 0));
    const auto lanes = hn::And(hn::Shr(hn::Set(dTimes, LastChosen[chosen]), shifts), hn::Set(dTimes, 7));
    const auto last = hn::TableLookupLanes(times, hn::IndicesFromVec(dTimes, lanes));
    constexpr hn::RebindToSigned<decltype(dTimes)> dSigned;
    const auto none = hn::Lt(hn::Iota(dSigned, 0), hn::Set(dSigned, std::countr_zero(chosen)));
    return hn::IfThenElse(hn::RebindMask(dTimes, none), before, last);
}

// The last lane in each lane.
HWY_INLINE Times lastLane(Times times)
{
    constexpr uint64_t last = TimeLanes - 1;
    return hn::TableLookupLanes(times, hn::IndicesFromVec(dTimes, hn::Set(dTimes, last)));
}

// In each lane the one before it, in the first lane that of `before`.
HWY_INLINE Times laneBefore(Times times, Times before)
{
    const auto lanes =
        hn::And(hn::Add(hn::Iota(dTimes, 0), hn::Set(dTimes, 7)), hn::Set(dTimes, TimeLanes - 1));
    const auto moved = hn::TableLookupLanes(times, hn::IndicesFromVec(dTimes, lanes));
    return hn::IfThenElse(hn::FirstN(dTimes, 1), before, moved);
}

struct T2Lanes
{
    explicit T2Lanes(T2Time) {}
    static bool fits(T2Time) { return true; }
    HWY_INLINE Times ps(Times raw) const { return raw; }
    HWY_INLINE Times syncPs(Times raw) const { return hn::Zero(dTimes); }
};

class T3Lanes
{
public:
    explicit T3Lanes(T3Time time)
        : period(hn::Set(dTimes, time.periodPs())),
          upperPeriod(hn::Set(dTimes, time.periodPs() >> 32)),
          resolution(hn::Set(dReal, time.resolutionPs()))
    {
    }
    // Whether a dtime in ps stays below the whole numbers that a double holds.
    static bool fits(T3Time time) { return time.resolutionPs() < 0x1p36; }

    HWY_INLINE Times ps(Times raw) const
    {
        const auto exponent = hn::Set(dTimes, 0x4330000000000000u); // 2^52, whose last bit is worth 1
        const auto dtime = hn::Or(hn::And(raw, hn::Set(dTimes, dtimeMask)), exponent);
        const auto real = hn::Mul(hn::Sub(hn::BitCast(dReal, dtime), hn::Set(dReal, 0x1p52)), resolution);
        const auto whole = hn::BitCast(dTimes, hn::Add(hn::Floor(real), hn::Set(dReal, 0x1p52)));
        return hn::Add(syncPs(raw), hn::Sub(whole, exponent));
    }
    HWY_INLINE Times syncPs(Times raw) const
    {
        const auto sync = hn::ShiftRight<dtimeBits>(raw);
        const auto upper = hn::Add(product(hn::ShiftRight<32>(sync), period), product(sync, upperPeriod));
        return hn::Add(product(sync, period), hn::ShiftLeft<32>(upper));
    }

private:
    // Of the lower 32 bits of each lane.
    static HWY_INLINE Times product(Times a, Times b)
    {
        constexpr hn::Repartition<uint32_t, decltype(dTimes)> d32;
        return hn::MulEven(hn::BitCast(d32, a), hn::BitCast(d32, b));
    }

    const hn::RebindToFloat<decltype(dTimes)> dReal;
    Times period, upperPeriod;
    hn::Vec<hn::RebindToFloat<decltype(dTimes)>> resolution;
};

inline T2Lanes lanesOf(T2Time time)
{
    return T2Lanes(time);
}
inline T3Lanes lanesOf(T3Time time)
{
    return T3Lanes(time);
}

#if HWY_TARGET <= HWY_AVX3

template <Stay stay>
HWY_INLINE void writeTimes(const uint64_t *from, uint32_t chosen, uint64_t *to)
{
    const auto times = hn::LoadU(dTimes, from);
    const auto shifts = hn::ShiftLeft<3>(hn::Iota(dTimes, 0));
    uint64_t places[2]; // a byte each
    std::memcpy(places, EventPlaces<stay>[chosen].data(), sizeof places);
    const auto moved = [&](uint64_t to8) {
        const auto lanes = hn::And(hn::Shr(hn::Set(dTimes, to8), shifts), hn::Set(dTimes, 7));
        return hn::TableLookupLanes(times, hn::IndicesFromVec(dTimes, lanes));
    };
    hn::StoreU(moved(places[0]), dTimes, to);
    if constexpr (stay != Stay::Chosen) hn::StoreU(moved(places[1]), dTimes, to + 8);
}

#else

// Four at a time, which are moved as eight halves.
template <Stay stay>
HWY_INLINE void writeTimes(const uint64_t *from, uint32_t chosen, uint64_t *to)
{
    constexpr hn::Repartition<uint32_t, decltype(dTimes)> d32;
    for (int half = 0; half < 2; ++half, from += 4, chosen >>= 4) {
        const auto times = hn::BitCast(d32, hn::LoadU(dTimes, from));
        const uint32_t *places = HalfPlaces<stay>[chosen & 15].data();
        const auto moved = [&](const uint32_t *halves) {
            const auto lanes = hn::IndicesFromVec(d32, hn::Load(d32, halves));
            return hn::BitCast(dTimes, hn::TableLookupLanes(times, lanes));
        };
        hn::StoreU(moved(places), dTimes, to);
        if constexpr (stay != Stay::Chosen) hn::StoreU(moved(places + 8), dTimes, to + 4);
        to += numStaying<stay>(chosen & 15, 4);
    }
}

#endif

// Writes what stays of eight events, a bit of `chosen` each, and up to LanesWritten events in all. Copies get
// the channels `copies`. Returns how many events stay.
template <Stay stay>
HWY_INLINE uint32_t writeEvents(const uint64_t *times, const uint8_t *channels, uint64_t copies,
                                uint32_t chosen, uint64_t *toTimes, uint8_t *toChannels)
{
    constexpr hn::Full128<uint8_t> d8;
    constexpr hn::Full128<uint64_t> d64;
    uint64_t own;
    std::memcpy(&own, channels, sizeof own);
    alignas(16) const uint64_t both[2] = {own, copies};
    const auto lanes = hn::BitCast(d8, hn::Load(d64, both));
    const auto places = hn::Load(d8, EventPlaces<stay>[chosen].data());
    hn::StoreU(hn::TableLookupBytes(lanes, places), d8, toChannels);
    writeTimes<stay>(times, chosen, toTimes);
    return numStaying<stay>(chosen, 8);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#endif
#endif
