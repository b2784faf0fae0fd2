// The picosecond time of a decoded event.
#pragma once

#include "devices/device.h"

#include <cstdint>

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

} // namespace Tessel
