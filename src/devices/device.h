// `Device`: one per instrument port, recorded file or remote device. Parameters are written on the thread of
// the request and read by the run without a lock: a host doesn't change them during a run.
#pragma once

#include "devices/enums.h"

#include <atomic>
#include <cstdint>
#include <mutex>
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
    int32_t DeadTimeOn = 0;
    int32_t DeadTime = 800;
    uint32_t TrigFeature = TrigFeature::Edge;
};

struct Device
{
    Tessel::DeviceType DeviceType = DeviceType::None;
    std::string FileDevicePath; // normal form
    uint64_t DataStart = 0;     // file offset of the first record
    uint64_t ReadPos = 0;       // MeasureThread's during a run
    uint64_t FileEnd = 0;       // likewise
    bool LoopFile = false;      // a replay starts again at the file's end; nothing sets it
    std::string ID;
    std::atomic<uint64_t> TableIndex{0};
    std::atomic<int32_t> Index{-1}; // negative: not usable
    std::string Model, PartNo, Version;
    uint32_t Features = 0;
    double BaseResolution = 1.0; // ps
    double Resolution = 1.0;     // ps
    int32_t MaxBinSteps = 0;
    int32_t LedBrightness = 2;
    int32_t NumChans = 0; // inputs, without the sync
    int32_t NumMods = 0;
    TrigMode SyncTrigMode = TrigMode::Edge;
    uint32_t SyncTrigFeature = TrigFeature::Edge;
    int32_t SyncDiv = 1;
    int32_t SyncTrigLvl = -40;
    int32_t SyncDiscrLvl = 50;
    int32_t SyncZeroxLvL = 0;
    int32_t SyncTrigEdge = 0;
    int32_t SyncChannelOffset = 0;
    int32_t SyncChannelEnable = 1;
    int32_t SyncDeadTimeOn = 0;
    uint32_t SyncDeadTime = 800;
    int32_t HystCode = 0;
    int32_t TimingMode = 0;
    uint32_t StopCount = 0; // stop a histogram when a bin reaches it; 0: never
    int32_t Binning = 0;
    int32_t Offset = 0;
    int32_t LengthCode = 6;
    uint64_t NumBins = 65536;
    int64_t SyncPeriodPs = 1; // raw time to ps: T2 the base resolution, T3 the sync period
    int32_t MeasControl = 0;
    int32_t StartEdge = 0, StopEdge = 0;
    int32_t TriggerOutput = 0;
    int32_t MarkerHoldoffTime = 0;
    int32_t HoldTime = 2; // ms
    std::vector<int32_t> MarkerEdges = {0, 0, 0, 0};
    std::vector<int32_t> MarkerEna = {0, 0, 0, 0};
    Tessel::MeasMode MeasMode = MeasMode::T3;
    int32_t RefSource = 0;
    std::vector<ModuleRow> ModsCfg;
    std::vector<ChannelRow> ChansCfg;
    uint32_t HwFilteRowWidth = 8;
    std::atomic<bool> IsOpen{false};
    std::atomic<bool> IsInitialized{false};
    std::atomic<bool> IsConfigured{false};
    int32_t Error = 0; // last result of an instrument library
    Tessel::LibType LibType = LibType::Undefined;
    std::string Comment;
    std::mutex Mutex; // around every call into an instrument library
};

} // namespace Tessel
