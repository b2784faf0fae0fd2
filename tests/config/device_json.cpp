#include "config/device_json.h"

#include "log/log.h"
#include "support/distinct_config.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

std::string textOf(const DeviceConfig &config, const DeviceState &state)
{
    LogLevel.Config = false;
    std::string text = stringifyJsonDevConfig(config, state);
    LogLevel.Config = true;
    return text;
}

} // namespace

TEST(DeviceJson, EveryKeyWithItsOwnValue)
{
    const DeviceState state{
        .Index = 7, .IsInitialized = true, .IsOpen = false, .IsConfigured = true, .Error = -36};
    for (TrigMode sync : {TrigMode::Edge, TrigMode::CFD, static_cast<TrigMode>(7)}) {
        // A set of bits is a signed number. A trigger mode without a text is left out, and both modes' levels.
        const std::string_view trigger =
            sync == TrigMode::Edge  ? R"("SyncTrigMode":"Edge","SyncTrigLvl":102,"SyncTrigEdge":103,)"
            : sync == TrigMode::CFD ? R"("SyncTrigMode":"CFD","SyncDiscrLvl":104,"SyncZeroxLvL":105,)"
                                    : "";
        EXPECT_EQ(
            textOf(distinctConfig(sync), state),
            fmt::format(
                R"({{"DeviceType":0,"FileDevicePath":"C:\\p","ID":"1234567","Index":7,"Model":"Lumora 70",)"
                R"("PartNo":"930","Version":"2.0","Features":-2147483647,"BaseResolution":5E0,)"
                R"("Resolution":2E1,"Binning":6,"NumChans":2,"NumMods":100,"SyncDiv":101,{})"
                R"("SyncChannelOffset":106,"SyncChannelEnable":107,"SyncDeadTime":4000000000,"HystCode":1,)"
                R"("TimingMode":108,"StopCount":4294967295,"Offset":109,"LengthCode":110,)"
                R"("NumBins":1099511627776,"MeasControl":111,"StartEdge":112,"StopEdge":113,)"
                R"("TriggerOutput":114,"MarkerHoldoffTime":115,"HoldTime":116,"MarkerEdges":[1,0],)"
                R"("MarkerEna":[0,1],"ModsCfg":[{{"Index":11,"ModelCode":12,"VersionCode":13}},)"
                R"({{"Index":14,"ModelCode":15,"VersionCode":16}}],)"
                R"("ChansCfg":[{{"Index":0,"Name":"left","TrigMode":"Edge","TrigLvl":-21,"TrigEdge":23,)"
                R"("ChanOffs":25,"ChanEna":1,"DeadTime":0,"TrigFeature":27}},)"
                R"({{"Index":1,"Name":"right","TrigMode":"CFD","DiscrLvl":32,"ZeroXLvl":34,)"
                R"("ChanOffs":-35,"ChanEna":0,"DeadTime":36,"TrigFeature":37}}],"MeasMode":3,)"
                R"("RefSource":10,"HwFilteRowWidth":4000000001,"IsInitialized":true,"IsOpen":false,)"
                R"("IsConfigured":true,"Error":-36,"LibType":4,"Comment":"a \"text\""}})",
                trigger));
    }
}
