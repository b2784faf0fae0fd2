// What set operations share beside the call itself.
#pragma once

#include "devices/limits.h"
#include "log/log.h"
#include "records/device.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace Tessel {

// "Config: SetInputCFD is not supported for model ..."; false.
inline bool notSupportedByModel(const Device &device, std::string_view operation)
{
    logWrn(LogCategory::General, "Config: {} is not supported for model {} @{}", operation, device.Model,
           device.ID);
    return false;
}

// Histograms and T3 have bins of time, T2 has none.
inline bool hasTimeBins(const DeviceConfig &device)
{
    return device.MeasMode == MeasMode::Histogramming || device.MeasMode == MeasMode::T3;
}

struct DeadTime
{
    int32_t On, Ps;
};

// What is sent for the dead time that a host asks for: one below the family's shortest switches it off.
template <class Member>
DeadTime deadTimeSent(const DeviceConfig &device, Member field, int32_t asked)
{
    const auto shortest = static_cast<int32_t>(limitsOf(device, field).Min);
    DeadTime sent{asked >= shortest, std::max(asked, shortest)};
    checkLimits(device, field, sent.Ps);
    return sent;
}

} // namespace Tessel
