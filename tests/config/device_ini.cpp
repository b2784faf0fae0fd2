// An INI text against fake libraries: the calls that it makes, what is kept, what the log says.
#include "support/instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

namespace {

using Lines = std::vector<std::string>;

struct Configured : Instrument
{
    explicit Configured(LibType family, MeasMode mode = MeasMode::T3) : Instrument(family, mode)
    {
        device.NumChans = 4;
        device.IsInitialized = true;
    }
};

// Warnings and errors in their order.
Lines complaintsOf(LogCapture &log)
{
    Lines complaints = linesOf(log, "");
    std::erase_if(complaints,
                  [](const std::string &line) { return !line.starts_with("WRN") && !line.starts_with("ERR"); });
    return complaints;
}

std::string onEachInput(const char *format)
{
    std::string calls;
    for (int input = 0; input < 4; ++input)
        calls += (input ? "; " : "") + fmt::format(fmt::runtime(format), input);
    return calls;
}

} // namespace

TEST(DeviceIni, EachKeyCallsItsOperation)
{
    const struct
    {
        LibType Family;
        const char *Key, *Calls;
        MeasMode Mode = MeasMode::T3;
    } cases[] = {
        {LM70, "SyncDiv=4", "SetSyncDiv 0 4"},
        {LM70, "SyncTrigMode=CFD", "SetSyncTrgMode 0 1; SetSyncCFD 0 0 0"},
        {LM70, "SyncTrigMode=1", "SetSyncTrgMode 0 1; SetSyncCFD 0 0 0"},
        {LM70, "SyncTrigMode=Edge", "SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -40 0"},
        {LM70, "SyncCFD = -150 , -20, 9", "SetSyncCFD 0 -150 -20"},
        {LM70, "SyncEdgeTrig=-60,1", "SetSyncEdgeTrg 0 -60 1"},
        {LM70, "SyncChannelOffset=-70", "SetSyncChannelOffset 0 -70"},
        {LM70, "SyncChannelEnable=0", "SetSyncChannelEnable 0 0"},
        {LM70, "SyncDeadTime=900", "SetSyncDeadTime 0 1 900"},
        {LM70, "HystCode=1", "SetInputHysteresis 0 1"},
        {SV40, "TimingMode=1", "SetTimingMode 0 1"},
        {LM70, "StopCount=4294967295", "SetStopOverflow 0 1 4294967295"},
        {LM70, "Offset=500", "SetOffset 0 500"},
        {LM70, "Binning=3", "SetBinning 0 3; GetResolution 0"},
        {LM70, "LengthCode=-1", "SetHistoLen 0 9", MeasMode::Histogramming},
        {LM70, "TriggerOutput=77", "SetTriggerOutput 0 77"},
        {LM70, "MarkerEdges=1,0,0,1", "SetMarkerEdges 0 1 0 0 1"},
        {LM70, "MarkerEnable=0,1,1,0", "SetMarkerEnable 0 0 1 1 0"},
        {LM70, "MarkerHoldoffTime=88", "SetMarkerHoldoffTime 0 88"},
        {LM70, "HoldTime=99", "SetOflCompression 0 99"},
        {LM70, "MeasControl=3", ""},
        {LM70, "TrigMode=CFD", "SetInputTrgMode 0 {0} 1; SetInputCFD 0 {0} 0 0"},
        {LM70, "EdgeTrig=-50,1", "SetInputEdgeTrg 0 {0} -50 1"},
        {LM70, "CFD=-40,-30", "SetInputCFD 0 {0} -40 -30"},
        {LM70, "ChanOffs=66", "SetInputChannelOffset 0 {0} 66"},
        {LM70, "ChanEna=0", "SetInputChannelEnable 0 {0} 0"},
        {LM70, "DeadTime=1000", "SetInputDeadTime 0 {0} 1 1000"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.Key);
        Configured instrument(c.Family, c.Mode);
        const bool isOfInputs = std::string_view(c.Calls).find('{') != std::string_view::npos;
        if (!isOfInputs) {
            setIniConfig(fmt::format("[Device]\n{}\n", c.Key).c_str());
            EXPECT_EQ(instrument.fake.newCalls(), c.Calls);
        } else {
            setIniConfig(fmt::format("[Channel_2]\n{}\n", c.Key).c_str());
            EXPECT_EQ(instrument.fake.newCalls(), fmt::format(fmt::runtime(c.Calls), 2));
            setIniConfig(fmt::format("[All_Channels]\n{}\n", c.Key).c_str());
            EXPECT_EQ(instrument.fake.newCalls(), onEachInput(c.Calls));
        }
        EXPECT_TRUE(instrument.device.IsConfigured);
        EXPECT_EQ(instrument.device.MeasControl, std::string_view(c.Key) == "MeasControl=3" ? 3 : 0);
    }
}

TEST(DeviceIni, LevelsOfAnInputAreKeptThoughTheInstrumentRefuses)
{
    Configured instrument(LM70);
    instrument.fake->answer("SetInputEdgeTrg", 0, -1);
    instrument.fake->answer("SetInputCFD", 0, -1);
    instrument.fake->answer("SetSyncEdgeTrg", 0, -1);
    setIniConfig("[Channel_1]\nEdgeTrig=-61,1\nCFD=-62,-63\nName=left = right\n[Device]\nSyncEdgeTrig=-64,1\n");
    const ChannelRow &row = instrument.device.ChansCfg[1];
    EXPECT_EQ(fmt::format("{} {} {} {}", row.TrigLvl, row.TrigEdge, row.DiscrLvl, row.ZeroXLvl),
              "-61 1 -62 -63");
    EXPECT_EQ(row.Name, "left = right");
    EXPECT_EQ(instrument.device.SyncTrigLvl, -40);
}

TEST(DeviceIni, SectionsActInTheOrderOfTheText)
{
    Configured instrument(LM70);
    setIniConfig("[All_Channels]\nChanOffs=5\n[Channel_1]\nChanOffs=6\n");
    EXPECT_EQ(instrument.device.ChansCfg[1].ChanOffs, 6);
    setIniConfig("[Channel_1]\nChanOffs=7\n[All_Channels]\nChanOffs=8\n");
    EXPECT_EQ(instrument.device.ChansCfg[1].ChanOffs, 8);
    instrument.fake.newCalls();
    setIniConfig("[Device]\nSyncDiv=2\nOffset=3\n[Channel_0]\nChanEna=0\n[Device]\nSyncDiv=4\n");
    EXPECT_EQ(instrument.fake.newCalls(),
              "SetSyncDiv 0 2; SetOffset 0 3; SetInputChannelEnable 0 0 0; SetSyncDiv 0 4");
}

TEST(DeviceIni, WhatIsWrongIsToldAndTheRestGoesOn)
{
    const std::string unknownName = "WRN Unknown ini key: [All_Channels] 'Name' 'x'";
    const std::string tooFew = "ERR Config: Too few numbers: ";
    const struct
    {
        const char *Text;
        Lines Complaints;
        const char *Calls = "";
    } cases[] = {
        {"[Device]\nsyncDiv=1\nChanOffs=2\n",
         {"WRN Unknown ini key: [Device] 'syncDiv' '1'", "WRN Unknown ini key: [Device] 'ChanOffs' '2'"}},
        {"[All_Channels]\nName=x\n", Lines(4, unknownName)},
        {"[Channel_3]\nSyncDiv=1\n", {"WRN Unknown ini key: [Channel_3] 'SyncDiv' '1'"}},
        {"[Channel_9]\nChanEna=1\nName=x\n[Channel_4]\nx=1\n[Channel_-1]\nChanEna=1\n", {}},
        {"[Channel_x]\nChanEna=0\n", {"ERR Log: Can't parse \"x\" to integer"}, "SetInputChannelEnable 0 0 0"},
        {"a=1\n[Inputs]\nb=2\nc=3\n[Empty]\n",
         {"WRN Unknown ini section: []", "WRN Unknown ini section: [Inputs]",
          "WRN Unknown ini section: [Inputs]"}},
        {"[Device]\nOffset=5ps\n", {"ERR Log: Can't parse \"5ps\" to integer"}, "SetOffset 0 0"},
        {"[Device]\nOffset=5,6\n", {"ERR Log: Can't parse \"5,6\" to integer"}, "SetOffset 0 0"},
        {"[Device]\nSyncTrigMode=cfd\n",
         {"ERR Log: Can't parse \"cfd\" to integer"},
         "SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -40 0"},
        {"[Device]\nStopCount=x\n", {"ERR Log: Can't parse \"x\" to unsigned int"}, "SetStopOverflow 0 0 1"},
        {"[Device]\nSyncEdgeTrig=5\nSyncCFD=\nMarkerEdges=1,1,1\nMarkerEnable=1\nOffset=7\n",
         {tooFew + "[Device] 'SyncEdgeTrig' '5'", tooFew + "[Device] 'SyncCFD' ''",
          tooFew + "[Device] 'MarkerEdges' '1,1,1'", tooFew + "[Device] 'MarkerEnable' '1'"},
         "SetOffset 0 7"},
        {"[Channel_0]\nEdgeTrig=5\nCFD=5\nChanOffs=7\n",
         {tooFew + "[Channel_0] 'EdgeTrig' '5'", tooFew + "[Channel_0] 'CFD' '5'"},
         "SetInputChannelOffset 0 0 7"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.Text);
        Configured instrument(LM70);
        LogCapture log;
        setIniConfig(c.Text);
        EXPECT_EQ(instrument.fake.newCalls(), c.Calls);
        EXPECT_EQ(complaintsOf(log), c.Complaints);
        EXPECT_EQ(instrument.device.ChansCfg[0].TrigLvl, -40) << "of a value with too few numbers";
        EXPECT_TRUE(instrument.device.IsConfigured);
    }
}

TEST(DeviceIni, OnlyAnInitialisedInstrumentTakesIt)
{
    const struct
    {
        DeviceType Type;
        bool IsInitialized;
        Lines Complaints;
    } cases[] = {
        {DeviceType::File, true, {}},
        {DeviceType::Remote, true, {}},
        {DeviceType::Instrument, false, {"ERR Config: Device must be initalized before setting the config!"}},
    };
    for (const auto &c : cases) {
        Configured instrument(LM70);
        instrument.device.DeviceType = c.Type;
        instrument.device.IsInitialized = c.IsInitialized;
        LogCapture log;
        setIniConfig("[Device]\nSyncDiv=2\nMeasControl=3\n[Nonsense]\na=1\n");
        EXPECT_EQ(complaintsOf(log), c.Complaints);
        EXPECT_EQ(instrument.fake.newCalls(), "");
        EXPECT_EQ(instrument.device.MeasControl, 0);
        EXPECT_FALSE(instrument.device.IsConfigured);
    }
}

TEST(DeviceIni, AFileAnswersAsItsLastSetter)
{
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    const struct
    {
        const char *Text;
        bool Answer;
    } cases[] = {
        {"", false},
        {"[Device]\nSyncDiv=2\nOffset=3\n", true},
        {"[Device]\nOffset=3\nSyncDiv=2\n", false}, // refused below
        {"[Device]\nOffset=3\nMeasControl=3\nunknown=4\n[Channel_0]\nName=x\nEdgeTrig=1\n", true},
    };
    for (const auto &c : cases) {
        Configured instrument(LM70);
        instrument.fake->answer("SetSyncDiv", 0, -1);
        std::ofstream(folder.file("a.ini")) << c.Text;
        EXPECT_EQ(loadIniConfig(folder.file("a.ini").c_str()), c.Answer) << c.Text;
        EXPECT_TRUE(instrument.device.IsConfigured);
    }
    for (const char *name : {"missing", "fifo"}) {
        Configured instrument(LM70);
        LogCapture log;
        EXPECT_FALSE(loadIniConfig(folder.file(name).c_str()));
        EXPECT_EQ(log.count(fmt::format("ERR Config: Load Ini-Config ({}) : ", folder.file(name))), 1u);
        EXPECT_FALSE(instrument.device.IsConfigured);
    }
    EXPECT_FALSE(loadIniConfig(nullptr));
    setIniConfig(nullptr);
}

TEST(DeviceIni, TheLogSaysWhatWasRead)
{
    const TempFolder folder;
    const std::string path = folder.file("a.ini"), text = "[Device]\nSyncDiv=2 \nOffset=300\n;23456789012345\n";
    std::ofstream(path) << text;
    Configured instrument(LM70);
    LogLevel.Config = true;
    LogCapture log;
    setIniConfig(text.c_str());
    setIniConfig((";" + std::string(60, 'x') + "\n[Device]\n").c_str());
    loadIniConfig(path.c_str());
    LogLevel.Config = false;
    for (const std::string &line : {
             std::string(R"(INF setIniConfig text "[Device]\nSyncDiv=2 \nOffset=300\n;23456789")"),
             "INF setIniConfig text \";" + std::string(60, 'x') + "\"",
             std::string(R"(INF (API setIniConfig '77' '[Device]\x0ASyncDiv=2 \x0A'))"),
             fmt::format("INF loadIniConfig file \"{}\"", path),
             fmt::format("INF API loadIniConfig \"77\" \"{}\"", path),
         })
        EXPECT_EQ(log.count(line), 1u) << line;
    for (const char *line : {"DEB INI Key SyncDiv", "INF Ini entry: Device SyncDiv 2"})
        EXPECT_EQ(log.count(line), 2u) << line;
    EXPECT_EQ(log.count("DEB INI Section Device"), 3u);
}
