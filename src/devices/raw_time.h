// The picosecond time of a decoded event.
#pragma once

#include "devices/device.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Tessel {

// T2: the stored time. T3: sync number x sync period + dtime x resolution, the latter cut to whole picoseconds.
// In any other mode 0.
class RawTime
{
public:
    static constexpr uint64_t dtimeMask = 0x7FFF;
    static constexpr int dtimeBits = 15;

    RawTime() = default;
    explicit RawTime(const Device &device)
        : mode(device.MeasMode),
          period(static_cast<uint64_t>(device.SyncPeriodPs)),
          resolution(device.Resolution)
    {
    }

    uint64_t ps(uint64_t raw) const
    {
        switch (mode) {
        case MeasMode::T2: return raw;
        case MeasMode::T3:
            return (raw >> dtimeBits) * period +
                   static_cast<uint64_t>(static_cast<double>(raw & dtimeMask) * resolution);
        default: return 0;
        }
    }

private:
    MeasMode mode = MeasMode::T2;
    uint64_t period = 1;
    double resolution = 1.0;
};

// The same with the mode settled once, for loops over many events.
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

    // In a mode without a stream every time is 0.
    explicit T3Time(const Device &device)
    {
        if (device.MeasMode != MeasMode::T3) return;
        period = static_cast<uint64_t>(device.SyncPeriodPs);
        constexpr double largest = 1e14; // a dtime then still fits into a signed number of picoseconds
        resolution = device.Resolution > 0 ? std::min(device.Resolution, largest) : 0;
        spanPs = dtimePs(RawTime::dtimeMask);
    }

    uint64_t ps(uint64_t raw) const { return syncPs(raw) + dtimePs(raw); }
    uint64_t syncPs(uint64_t raw) const { return (raw >> RawTime::dtimeBits) * period; }

    // The dtime is counted in whole picoseconds of resolution.
    uint64_t raw(uint64_t ps) const
    {
        const uint64_t divisor = std::max<uint64_t>(period, 1);
        const uint64_t step = std::max<uint64_t>(static_cast<uint64_t>(resolution), 1);
        return ((ps % divisor / step) & RawTime::dtimeMask) | ps / divisor << RawTime::dtimeBits;
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
        constexpr uint64_t syncs = uint64_t{1} << (64 - RawTime::dtimeBits);
        return sync < syncs ? sync << RawTime::dtimeBits : std::numeric_limits<uint64_t>::max();
    }
    uint64_t dtimePs(uint64_t raw) const
    {
        const auto dtime = static_cast<int32_t>(raw & RawTime::dtimeMask);
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<double>(dtime) * resolution));
    }

    uint64_t period = 0;
    double resolution = 0;
    uint64_t spanPs = 0; // of the largest dtime
};

// Calls `work` with the time that the device's mode asks for.
template <class Work>
auto withTime(const Device &device, Work work)
{
    if (device.MeasMode == MeasMode::T2) return work(T2Time());
    return work(T3Time(device));
}

} // namespace Tessel
