// The picosecond time of a decoded event, and back.
//
// T2: the raw time is the time. T3: it is the sync number above 15 bits of dtime, and the time is sync number x
// sync period + dtime x resolution, the latter cut to whole picoseconds. In any other mode the time is 0.
#pragma once

#include "records/facts.h"
#include "stream/division.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Tessel {

inline constexpr int dtimeBits = 15;
inline constexpr uint64_t dtimeMask = (uint64_t{1} << dtimeBits) - 1;

// With the mode settled, for loops over many events.
struct T2Time
{
    static constexpr bool isT3 = false;

    uint64_t ps(uint64_t raw) const { return raw; }
    uint64_t raw(uint64_t ps) const { return ps; }
    uint64_t syncPs(uint64_t) const { return 0; }

    // Every raw time below this one is earlier than `ps`; every one from there on, up to the last that doesn't
    // wrap, isn't.
    uint64_t surelyBefore(uint64_t ps) const { return ps; }
    uint64_t surelyFrom(uint64_t ps) const { return ps; }
};

class T3Time
{
public:
    static constexpr bool isT3 = true;

    // In a mode without a stream, or of no device, every time is 0.
    T3Time() = default;
    explicit T3Time(const StreamFacts &facts)
    {
        if (facts.Mode != MeasMode::T3) return;
        period = static_cast<uint64_t>(facts.SyncPeriodPs);
        constexpr double largest = 0x1p48; // a dtime then still fits into a signed number of picoseconds
        resolution = facts.Resolution > 0 ? std::min(facts.Resolution, largest) : 0;
        spanPs = dtimePs(dtimeMask);
        byPeriod = AnyDivision(std::max<uint64_t>(period, 1));
        byStep = AnyDivision(std::max<uint64_t>(static_cast<uint64_t>(resolution), 1));
    }

    uint64_t ps(uint64_t raw) const { return syncPs(raw) + dtimePs(raw); }
    uint64_t syncPs(uint64_t raw) const { return (raw >> dtimeBits) * period; }
    uint64_t periodPs() const { return period; }
    double resolutionPs() const { return resolution; }

    // The dtime is counted in whole picoseconds of resolution.
    uint64_t raw(uint64_t ps) const
    {
        const uint64_t sync = byPeriod(ps);
        return (byStep(ps - sync * byPeriod.Divisor) & dtimeMask) | sync << dtimeBits;
    }

    uint64_t surelyBefore(uint64_t ps) const
    {
        if (ps <= spanPs || period == 0) return 0;
        return rawOfSync((ps - spanPs - 1) / period + 1);
    }
    uint64_t surelyFrom(uint64_t ps) const
    {
        if (period == 0) return std::numeric_limits<uint64_t>::max();
        return rawOfSync(ps / period + (ps % period != 0));
    }

private:
    static uint64_t rawOfSync(uint64_t sync)
    {
        constexpr uint64_t syncs = uint64_t{1} << (64 - dtimeBits);
        return sync < syncs ? sync << dtimeBits : std::numeric_limits<uint64_t>::max();
    }
    // By way of signed numbers, which convert in one instruction.
    uint64_t dtimePs(uint64_t raw) const
    {
        const auto dtime = static_cast<int32_t>(raw & dtimeMask);
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<double>(dtime) * resolution));
    }

    uint64_t period = 0;
    double resolution = 0;
    uint64_t spanPs = 0; // of the largest dtime
    AnyDivision byPeriod{1}, byStep{1};
};

// Calls `work` with the time that the stream's mode asks for.
template <class Work>
auto withTime(const StreamFacts &facts, Work work)
{
    if (facts.Mode == MeasMode::T2) return work(T2Time());
    return work(T3Time(facts));
}

// The same for who meets an event now and then.
class RawTime
{
public:
    RawTime() = default;
    explicit RawTime(const StreamFacts &facts) : isT2(facts.Mode == MeasMode::T2), t3(facts) {}

    uint64_t ps(uint64_t raw) const { return isT2 ? raw : t3.ps(raw); }

private:
    bool isT2 = false;
    T3Time t3;
};

} // namespace Tessel
