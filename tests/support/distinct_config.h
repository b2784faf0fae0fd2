// A configuration no two numbers of which are alike, so that no key and no tag can have the value of another.
#pragma once

#include "records/device_config.h"

namespace TestSupport {

inline Tessel::DeviceConfig distinctConfig(Tessel::TrigMode sync)
{
    using Config = Tessel::DeviceConfig;
    using enum Tessel::TrigMode;
    Config config;
    config.DeviceType = Tessel::DeviceType::Instrument;
    config.LibType = Tessel::LibType::CD90;
    config.MeasMode = Tessel::MeasMode::T3;
    config.FileDevicePath = "C:\\p";
    config.ID = "1234567";
    config.Model = "Lumora 70";
    config.PartNo = "930";
    config.Version = "2.0";
    config.Comment = "a \"text\"";
    config.Features = 0x80000001;
    config.BaseResolution = 5;
    config.Resolution = 20;
    config.NumChans = 2;
    config.RefSource = 10;
    config.Binning = 6;
    config.SyncTrigMode = sync;
    config.SyncDeadTimeOn = 1;
    config.SyncDeadTime = 4000000000;
    config.HystCode = 1;
    config.StopCount = 4294967295;
    config.NumBins = uint64_t{1} << 40;
    config.HwFilteRowWidth = 4000000001;
    config.MarkerEdges = {1, 0};
    config.MarkerEna = {0, 1};
    config.ModsCfg = {{11, 12, 13}, {14, 15, 16}};
    config.ChansCfg = {{0, "left", Edge, -21, 22, 23, 24, 25, 1, 0, 26, 27},
                       {1, "right", CFD, -31, 32, 33, 34, -35, 0, 1, 36, 37}};
    int32_t next = 100;
    for (auto member :
         {&Config::NumMods, &Config::SyncDiv, &Config::SyncTrigLvl, &Config::SyncTrigEdge,
          &Config::SyncDiscrLvl, &Config::SyncZeroxLvL, &Config::SyncChannelOffset, &Config::SyncChannelEnable,
          &Config::TimingMode, &Config::Offset, &Config::LengthCode, &Config::MeasControl, &Config::StartEdge,
          &Config::StopEdge, &Config::TriggerOutput, &Config::MarkerHoldoffTime, &Config::HoldTime})
        config.*member = next++;
    return config;
}

} // namespace TestSupport
