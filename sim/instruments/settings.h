// What a host has set on an instrument. Plain values, in the library's units: levels in mV, times in ps where
// no other unit is named.
#pragma once

#include <cstdint>
#include <vector>

namespace Tessel::Sim {

struct InputSettings
{
    int32_t TrigMode = 0; // 0 edge, 1 CFD
    int32_t Level = -50, Edge = 0;
    int32_t Discriminator = 50, ZeroCross = 0;
    int32_t OffsetPs = 0;
    bool IsEnabled = true;
    int32_t DeadTimePs = 0; // 0: off
};

struct MarkerSettings
{
    int32_t Edge = 1; // 0 falling, 1 rising
    bool IsEnabled = true;
};

// Of a row, or of the main filter, whose masks hold a byte or more for each row and a bit for the sync.
struct FilterSettings
{
    bool IsOn = false, IsInverse = false;
    int32_t RangePs = 0, MatchCount = 1;
    uint64_t Use = 0, Pass = 0; // a bit for each channel
    bool UseSync = false, PassSync = false;
};

constexpr int numFilterRows = 8;

struct Settings
{
    InputSettings Sync;
    int32_t SyncDivider = 1;
    std::vector<InputSettings> Inputs;
    MarkerSettings Markers[4];
    int32_t MarkerHoldoffNs = 0;
    int32_t HoldTimeMs = 2;
    int32_t HystCode = 0, TimingMode = 0, TriggerOutput = 0, LedBrightness = 2;
    bool StopsAtOverflow = false;
    uint32_t StopCount = UINT32_MAX;
    int32_t Binning = 0, OffsetPs = 0;
    int32_t LengthCode = 6;
    int32_t Control = 0, StartEdge = 1, StopEdge = 0;
    bool FilterTests = false;
    FilterSettings MainFilter, RowFilters[numFilterRows];
};

} // namespace Tessel::Sim
