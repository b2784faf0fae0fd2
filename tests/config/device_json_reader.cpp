#include "config/device_json.h"
#include "devices/families.h"
#include "support/distinct_config.h"
#include "support/log_capture.h"

#include <boost/json.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

DeviceConfig &configOf(Device &device)
{
    return device;
}

std::string textOf(const Device &device)
{
    return stringifyJsonDevConfig(device, stateOf(device));
}

// "NumBins=1 Comment=\"x\"": the keys of which the second text has another value.
std::string changes(const std::string &before, const std::string &after)
{
    const boost::json::object old = boost::json::parse(before).as_object();
    const boost::json::object now = boost::json::parse(after).as_object();
    std::string text;
    for (const auto &[key, value] : now)
        if (!old.contains(key) || old.at(key) != value)
            text += fmt::format("{}{}={}", text.empty() ? "" : " ", std::string_view(key),
                                boost::json::serialize(value));
    return text;
}

} // namespace

// The levels of the other trigger mode, which the text doesn't have, stay those of the device that reads it.
TEST(DeviceJsonReader, RoundTripKeepsWhatTheTextHas)
{
    for (LibType family : {LibType::ZP, LibType::CD, LibType::SV40, LibType::LM70, LibType::CD90})
        for (TrigMode sync : {TrigMode::Edge, TrigMode::CFD, static_cast<TrigMode>(7)}) {
            Device from, to;
            configOf(from) = distinctConfig(sync);
            from.LibType = family;
            from.NumMods = 2;
            from.NumBins = mostBins;
            from.SyncDeadTimeOn = sync == TrigMode::Edge;
            from.Comment = "\xC3\xA4 \"quoted\" \n";
            from.Index = 3;
            from.IsOpen = from.IsConfigured = true;
            from.Error = -2;
            to.SyncTrigLvl = to.SyncTrigEdge = to.SyncDiscrLvl = to.SyncZeroxLvL = -7;
            to.SyncTrigMode = static_cast<TrigMode>(7);
            to.IsInitialized = true;
            ChannelRow row;
            row.DiscrLvl = 51;
            row.ZeroXLvl = 52;
            to.ChansCfg = {row};
            parseJsonDevConfig(to, textOf(from));
            EXPECT_EQ(to.DeviceType, DeviceType::None);
            to.DeviceType = from.DeviceType;
            EXPECT_EQ(textOf(to), textOf(from));
            EXPECT_EQ(to.SyncTrigLvl, sync == TrigMode::Edge ? from.SyncTrigLvl : -7);
            EXPECT_EQ(to.SyncTrigEdge, sync == TrigMode::Edge ? from.SyncTrigEdge : -7);
            EXPECT_EQ(to.SyncDiscrLvl, sync == TrigMode::CFD ? from.SyncDiscrLvl : -7);
            EXPECT_EQ(to.SyncZeroxLvL, sync == TrigMode::CFD ? from.SyncZeroxLvL : -7);
            EXPECT_EQ(to.SyncDeadTimeOn, from.SyncDeadTimeOn);
            EXPECT_EQ(to.SyncDeadTime, from.SyncDeadTimeOn ? from.SyncDeadTime : 0);
            ASSERT_EQ(to.ChansCfg.size(), 2u);
            const ChannelRow &edge = to.ChansCfg[0], &cfd = to.ChansCfg[1], fresh;
            EXPECT_EQ(std::tuple(edge.DiscrLvl, edge.ZeroXLvl), std::tuple(51, 52)); // of the old row
            EXPECT_EQ(std::tuple(cfd.TrigLvl, cfd.TrigEdge), std::tuple(fresh.TrigLvl, fresh.TrigEdge));
            EXPECT_EQ(std::tuple(edge.DeadTimeOn, cfd.DeadTimeOn), std::tuple(0, 1));
        }
}

TEST(DeviceJsonReader, ChangesOnlyWhatItUnderstands)
{
    const std::string emptied = R"(MarkerEdges=[] MarkerEna=[] ModsCfg=[] ChansCfg=[])";
    struct Case
    {
        std::string text, changed;
        std::string_view line; // in the log; of them
        size_t count;
    };
    const std::vector<Case> cases = {
        {"", "", "ERR Config: Can't parse empty string to device config!", 1},
        {"{}", emptied, "WRN JSON: Can't find \"", 44},
        {"{}", emptied, "WRN JSON: Can't find \"SyncTrigMode\" in JSONparseString.", 2},
        {"{}", emptied, "WRN JSON: Can't find \"Binning\" in JSONparseInt.", 2},
        {"{}", emptied, "WRN JSON: Can't find \"ChansCfg\" in JSONparseJObject.", 1},
        {"{", emptied, "ERR JSON: Can't parse \"", 44},
        {"{", emptied, "ERR JSON: Can't parse \"NumChans\" to JSON value: incomplete JSON in JSONparseInt", 1},
        {std::string(40, '['), emptied, "JSON value: too deep in JSONparseDbl", 2},
        {"7", emptied,
         "ERR JSON: Can't parse \"IsOpen\" to JSON object: value is not an object in JSONparseBool", 1},
        {"7", emptied, "ERR JSON: Can't parse \"Resolution\" to JSON object: value is not an object", 1},
        {"7", emptied, "JSON object: value is not an object in JSONparseDbl", 0},
        {R"({"Model":7})", emptied,
         "ERR JSON: Can't parse \"Model\" to int: value is not a string in JSONparseString", 1},
        {R"({"IsOpen":1})", emptied,
         "ERR JSON: Can't parse \"IsOpen\" to int: value is not boolean in JSONparseBool", 1},
        {R"({"Offset":1.5})", emptied, "ERR JSON: Can't parse \"Offset\" to int: not exact in JSONparseInt", 1},
        {R"({"Resolution":"1"})", emptied, "\"Resolution\" to double: not a number in JSONparseDbl", 1},
        {R"({"ModsCfg":{}})", emptied, "\"ModsCfg\" to JSON array: value is not an array in JSONparseJObject",
         1},
        {R"({"MarkerEna":[1,true],"Offset":5})", "Offset=5 MarkerEdges=[] ModsCfg=[] ChansCfg=[]",
         "ERR JSON: Can't parse \"MarkerEna\" to int: not a number in JSONparseJObject", 1},
        {R"({"Offset":2147483648,"Features":4294967296,"StopCount":-1,"NumChans":4096,"NumMods":-1,)"
         R"("NumBins":1048577,"HwFilteRowWidth":4294967296,"Error":1e300,"Index":-2147483649})",
         emptied, "is out of range and ignored", 8},
        {R"({"NumBins":1048576,"StopCount":0,"NumChans":4095,"Resolution":3,"Features":4294967295})",
         "Features=-1 Resolution=3E0 NumChans=4095 StopCount=0 NumBins=1048576 " + emptied, "out of range", 0},
        {R"({"SyncDeadTime":0,"SyncTrigMode":"CFD","SyncTrigLvl":1})",
         "SyncTrigMode=\"CFD\" SyncDiscrLvl=104 SyncZeroxLvL=105 SyncDeadTime=0 " + emptied,
         "WRN JSON: Can't find \"SyncDiscrLvl\"", 1},
        {R"({"ID":"another"})", emptied, "WRN JSON: The text is of the device another and not of 1234567", 1},
        {R"({"ModsCfg":[{"ModelCode":5},7],"ChansCfg":[{"TrigMode":"CFD","DiscrLvl":9},{"TrigMode":"?"},8]})",
         R"(MarkerEdges=[] MarkerEna=[] ModsCfg=[{"Index":0,"ModelCode":5,"VersionCode":0},)"
         R"({"Index":0,"ModelCode":0,"VersionCode":0}] ChansCfg=[{"Index":0,"Name":"","TrigMode":"CFD",)"
         R"("DiscrLvl":9,"ZeroXLvl":0,"ChanOffs":0,"ChanEna":0,"DeadTime":0,"TrigFeature":0},)"
         R"({"Index":1,"Name":"right","TrigMode":"CFD","DiscrLvl":32,"ZeroXLvl":34,"ChanOffs":-35,"ChanEna":0,)"
         R"("DeadTime":36,"TrigFeature":37},{"Index":0,"Name":"","TrigMode":"Edge","TrigLvl":-40,)"
         R"("TrigEdge":0,"ChanOffs":0,"ChanEna":1,"DeadTime":0,"TrigFeature":1}])",
         "ERR JSON: Can't parse \"TrigMode\" to JSON object: value is not an object in JSONparseString", 1},
    };
    for (const Case &each : cases) {
        Device device;
        configOf(device) = distinctConfig(TrigMode::Edge);
        const std::string before = textOf(device);
        LogCapture log;
        parseJsonDevConfig(device, each.text);
        EXPECT_EQ(changes(before, textOf(device)), each.changed) << each.text;
        EXPECT_EQ(log.count(each.line), each.count) << each.text << "\n"
                                                    << each.line << "\n"
                                                    << fmt::format("{}", fmt::join(log.lines(), "\n"));
    }
}
