// `DeviceConfig`: the configuration of a device as a plain value. A copy is a snapshot for a header, a JSON
// text or a run. devices/fields.cpp says what else there is to know of each field.
#pragma once

#include "records/enums.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel {

struct ModuleRow
{
    int32_t Index = 0, ModelCode = 0, VersionCode = 0;
};

struct ChannelRow // one per input channel; levels in mV, times in ps
{
    int32_t Index = 0; // from 0
    std::string Name;
    Tessel::TrigMode TrigMode = TrigMode::Edge;
    int32_t TrigLvl = -40;
    int32_t DiscrLvl = 50;
    int32_t TrigEdge = 0;
    int32_t ZeroXLvl = 0;
    int32_t ChanOffs = 0;
    int32_t ChanEna = 1;
    int32_t DeadTimeOn = 0; // DeadTime counts while this is 1
    int32_t DeadTime = 800;
    uint32_t TrigFeature = TrigFeature::Edge;
};

// All parameters, and what the instrument or the file says of itself. Levels in mV, times in ps.
struct DeviceConfig
{
    Tessel::DeviceType DeviceType = DeviceType::None;
    Tessel::LibType LibType = LibType::Undefined;
    std::string FileDevicePath; // normal form
    std::string ID;
    std::string Model, PartNo, Version;
    uint32_t Features = 0;
    double BaseResolution = 1.0;
    double Resolution = 1.0;
    int32_t MaxBinSteps = 0;
    int32_t NumChans = 0; // inputs, without the sync
    int32_t NumMods = 0;
    std::vector<ModuleRow> ModsCfg;
    std::vector<ChannelRow> ChansCfg;
    uint32_t HwFilteRowWidth = 8;

    TrigMode SyncTrigMode = TrigMode::Edge;
    uint32_t SyncTrigFeature = TrigFeature::Edge;
    int32_t SyncDiv = 1;
    int32_t SyncTrigLvl = -40;
    int32_t SyncDiscrLvl = 50;
    int32_t SyncZeroxLvL = 0;
    int32_t SyncTrigEdge = 0;
    int32_t SyncChannelOffset = 0;
    int32_t SyncChannelEnable = 1;
    int32_t SyncDeadTimeOn = 0; // SyncDeadTime counts while this is 1
    uint32_t SyncDeadTime = 800;

    Tessel::MeasMode MeasMode = MeasMode::T3;
    int32_t RefSource = 0;
    int32_t HystCode = 0;
    int32_t TimingMode = 0;
    uint32_t StopCount = 0; // stop a histogram when a bin reaches it; 0: never
    int32_t Binning = 0;
    int32_t Offset = 0;
    int32_t LengthCode = 6;
    uint64_t NumBins = 65536;
    int32_t MeasControl = 0;
    int32_t StartEdge = 0, StopEdge = 0;
    int32_t TriggerOutput = 0;
    int32_t LedBrightness = 2;
    int32_t MarkerHoldoffTime = 0;
    int32_t HoldTime = 2; // ms
    std::vector<int32_t> MarkerEdges = {0, 0, 0, 0};
    std::vector<int32_t> MarkerEna = {0, 0, 0, 0};
    std::string Comment;
};

// The state of a device's connection, as a value beside its configuration.
struct DeviceState
{
    int32_t Index = -1;
    bool IsInitialized = false, IsOpen = false, IsConfigured = false;
    int32_t Error = 0;
};

} // namespace Tessel
