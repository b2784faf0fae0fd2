// The record of a device's last run.
#pragma once

#include "records/enums.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace Tessel {

// Written by opening a file, then by the run. The host may ask for it at any time, so what it can see is
// atomic. The rest is constant after opening.
struct MeasDescription
{
    std::atomic<int32_t> AcqTime{0};          // ms
    std::atomic<int32_t> MeasSubMode{0};      // the host's; a run's start keeps it
    std::atomic<double> AveSyncRate{0.0};     // Hz
    std::atomic<double> AveSyncPeriod{1e300}; // s
    std::atomic<Tessel::StopReason> StopReason{StopReason::Unknown};
    std::atomic<double> StopAfter{0.0}; // elapsed time as the instrument gives it
    std::atomic<int32_t> WarningsFlag{0};
    std::atomic<uint64_t> NumRecs{0};
    std::array<uint32_t, 3> StartWords{}; // low, middle, high
    int64_t StartTime = 0;                // units of 100 ns since 1970
    int64_t CreatingTime = 0;             // units of 100 ns since 1970
};

} // namespace Tessel
