#include "datafiles/header_writer.h"

#include "datafiles/custom_tags.h"
#include "datafiles/header_listing.h"
#include "log/text.h"
#include "opened.h"
#include "support/distinct_config.h"
#include "support/log_capture.h"

#include <boost/crc.hpp>
#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <tuple>

using namespace Tessel;
using namespace TestSupport;

namespace json = boost::json;

namespace {

// The last four bytes are the CRC-32 of the others, with 2 and 4 in place of the first two.
bool hasItsCrc(std::string header)
{
    uint32_t stored;
    std::memcpy(&stored, header.data() + header.size() - sizeof stored, sizeof stored);
    header[0] = 2;
    header[1] = 4;
    boost::crc_32_type crc;
    crc.process_bytes(header.data(), header.size() - sizeof stored);
    return crc.checksum() == stored;
}

// The tags of a header, a line each: first letters of the type, name, index, value. Id and time of a file are
// new each time.
std::string listing(const std::string &path)
{
    std::string lines;
    const json::value header = json::parse(headerTagsAsJson(path).value());
    for (const json::value &tag : header.at("tags").as_array()) {
        const std::string_view name = tag.at("name").as_string();
        const int64_t idx = tag.at("idx").as_int64();
        const bool isNew = name == "File_GUID" || name == "File_CreatingTime" || name == headerEndName;
        lines += fmt::format("{:.2} {}{} {}\n", std::string_view(tag.at("type").as_string()), name,
                             idx < 0 ? "" : fmt::format("[{}]", idx),
                             isNew ? "*" : json::serialize(tag.at("value")));
    }
    return lines;
}

// What a header of its own device must become.
std::string expectedListing(TrigMode sync, std::string_view stopReason,
                            std::array<std::string_view, 10> results)
{
    constexpr std::string_view tags =
        R"(An File_GUID * | An CreatorSW_Name "Tessel" | An CreatorSW_Version "Tessel v1.2.3.7"
TD File_CreatingTime * | An File_Comment "a \"text\"" | In Measurement_Mode 3 | In Measurement_SubMode 1
In TTResult_StopReason {} | Em Fast_Load_End null | In CreatorSW_Modules 2
An CreatorSW_ModuleName[0] "LM70lib" | An CreatorSW_ModuleVers[0] "1.0" | An CreatorSW_ModuleName[1] "CDlib"
An CreatorSW_ModuleVers[1] "3.1" | In TTResultFormat_TTTRRecType 66311 | In TTResultFormat_BitsPerRecord 32
In CreatorSW_SVNBuild 7 | An HW_Type "Lumora 70" | An HW_PartNo "930" | An HW_Version "2.0"
An HW_SerialNo "1234567" | Bi HW_Features 2147483649 | Fl HW_BaseResolution 5E-12 | In HW_InpChannels 2
In HW_RefClockSource 9 | Fl HWTriggerOut_Period 1.14E-7 | Bo HW_InputHysteresis true
In HW_Timingmode 108 | In HWSync_Divider 101
{}
In HWSync_Offset 106 | In HWSync_TdCode 4000000000 | An HWInpChan_Name[0] "left" | In HWInpChan_TrgMode[0] 0
In HWInpChan_TrgLevel[0] -21 | In HWInpChan_TrgEdge[0] 23 | In HWInpChan_Offset[0] 25
Bo HWInpChan_Enabled[0] true | In HWInpChan_TdCode[0] 0 | An HWInpChan_Name[1] "right"
In HWInpChan_TrgMode[1] 1 | In HWInpChan_CFDLevel[1] 32 | In HWInpChan_CFDZeroCross[1] 34
In HWInpChan_Offset[1] -35 | Bo HWInpChan_Enabled[1] false | In HWInpChan_TdCode[1] 36
Fl MeasDesc_Resolution 2E-11 | In MeasDesc_BinningFactor 64 | In MeasDesc_Offset 109
In MeasDesc_AcquisitionTime 2000 | In HW_Markers 2 | Bo HWMarkers_RisingEdge[0] true
Bo HWMarkers_RisingEdge[1] false | Bo HWMarkers_Enabled[0] false | Bo HWMarkers_Enabled[1] true
In HWMarkers_HoldOff 115 | Fl MeasDesc_GlobalResolution {} | In TTResult_SyncRate {}
In TTResult_InputRate[0] {} | In TTResult_InputRate[1] {} | In TTResult_StopAfter {}
In TTResult_NumberOfRecords {} | Bi TTResult_MDescWarningFlags {} | In MeasDesc_StartTime[0] {}
In MeasDesc_StartTime[1] {} | In MeasDesc_StartTime[2] {} | In MyTag[3] 77 | Em Header_End *
)";
    const std::string_view trigger =
        sync == TrigMode::Edge ? "In HWSync_TrgMode 0 | In HWSync_TrgLevel 102 | In HWSync_TrgEdge 103"
                               : "In HWSync_TrgMode 1 | In HWSync_CFDLevel 104 | In HWSync_CFDZeroCross 105";
    std::string lines =
        std::apply([&](auto... values) { return fmt::format(tags, stopReason, trigger, values...); }, results);
    for (size_t at; (at = lines.find(" | ")) != lines.npos;) lines.replace(at, 3, "\n");
    return lines;
}

// A header of a device in a file of its own.
struct Header
{
    explicit Header(TrigMode sync = TrigMode::CFD) : device(distinctConfig(sync))
    {
        inWork.Path = normalPath(path());
        MeasDescription &description = context.Description;
        description.MeasSubMode = 1;
        description.AcqTime = 2000;
        description.AveSyncRate = 80e6;
        description.StartWords = {1, 2, 3};
        for (int i = 0; i < 4; ++i) context.CountRates[static_cast<size_t>(i)] = 100 * i;
        addIntTag(inWork.CustomTags, "MyTag", 77, 3);
    }

    bool write(bool update = false) { return writeHeader(inWork, device, context, update); }
    std::string path() const { return folder.file("h.tgx"); }
    std::string bytes() const { return contents(path()); }

    TempFolder folder;
    DeviceConfig device;
    MeasContext context;
    HeaderInWork inWork;
};

} // namespace

struct HeaderOf : testing::TestWithParam<TrigMode>
{
};
INSTANTIATE_TEST_SUITE_P(SyncMode, HeaderOf, testing::Values(TrigMode::Edge, TrigMode::CFD));

TEST_P(HeaderOf, BothWritesTheirCrcAndWhatComesBack)
{
    setenv("TZ", "UTC", 1); // a header has an hour less while daylight saving is in force
    const int64_t before = std::time(nullptr);
    Header header(GetParam());
    header.inWork.Libraries = {{"LM70lib", "1.0"}, {"CDlib", "3.1"}};
    auto isSealed = [&] {
        return header.inWork.Complete && hasItsCrc(header.bytes().substr(0, header.inWork.Length));
    };
    ASSERT_TRUE(header.write());
    EXPECT_TRUE(isSealed());
    EXPECT_EQ(header.inWork.Length, header.bytes().size());
    EXPECT_EQ(
        listing(header.path()),
        expectedListing(GetParam(), "-1", {"1.25E-8", "80000000", "100", "200", "0", "0", "0", "1", "2", "3"}));

    std::ofstream(header.path(), std::ios::binary | std::ios::app) << "records!";
    MeasDescription &description = header.context.Description;
    description.AveSyncRate = 40e6;
    description.StopReason = StopReason::Manual;
    description.StopAfter = 1999;
    description.NumRecs = 2;
    description.WarningsFlag = 5;
    description.StartWords = {4, 5, 6};
    header.device.Comment = "is written at first only";
    ASSERT_TRUE(header.write(true));
    EXPECT_TRUE(isSealed());
    EXPECT_EQ(header.bytes().substr(header.inWork.Length), "records!");
    EXPECT_EQ(
        listing(header.path()),
        expectedListing(GetParam(), "1", {"2.5E-8", "40000000", "0", "100", "1999", "2", "5", "4", "5", "6"}));

    // Of the trigger modes, what CFD needs, the sync's dead time and the clock, nothing is read. The period of
    // the trigger output is a double, of which the low half is taken.
    QuietDataFile quiet;
    auto opened = openPath(header.path());
    EXPECT_EQ(missing(*opened,
                      "DeviceType=1|LibType=3|ID=1234567@h.tgx|Model=Lumora 70|PartNo=930|Version=2.0|"
                      "Features=2147483649|BaseResolution=5|Resolution=20|Binning=6|NumChans=2|"
                      "SyncDiv=101|SyncTrigMode=0|SyncDiscrLvl=50|SyncZeroxLvL=0|SyncChannelOffset=106|"
                      "SyncDeadTime=800|SyncDeadTimeOn=0|HystCode=1|TimingMode=108|Offset=109|"
                      "NumBins=32768|MarkerHoldoffTime=115|MarkerEdges=1 0|MarkerEna=0 1|MeasMode=3|"
                      "RefSource=0|Comment=a \"text\"|ChansCfg=2|SyncPeriodPs=25000|ResolutionPs=5|"
                      "SyncRate=40000000|CountRate[0]=0|CountRate[1]=100|AcqTime=2000|MeasSubMode=1|"
                      "AveSyncRate=40000000|StopReason=1|StopAfter=1999|WarningsFlag=5|NumRecs=2|"
                      "StartWords=4 5 6"),
              "");
    EXPECT_EQ(missing(*opened, "0.Index=0|0.Name=left|0.TrigMode=0|0.TrigLvl=-21|0.TrigEdge=23|0.DiscrLvl=50|"
                               "0.ZeroXLvl=0|0.ChanOffs=25|0.ChanEna=1|0.DeadTime=0|0.DeadTimeOn=0|"
                               "1.Index=1|1.Name=right|1.TrigMode=0|1.TrigLvl=-40|1.TrigEdge=0|1.DiscrLvl=50|"
                               "1.ZeroXLvl=0|1.ChanOffs=-35|1.ChanEna=0|1.DeadTime=36|1.DeadTimeOn=0"),
              "");
    EXPECT_EQ(opened->device.TriggerOutput, static_cast<int32_t>(std::bit_cast<uint64_t>(114 * 1e-9)));
    const bool isEdge = GetParam() == TrigMode::Edge;
    EXPECT_EQ(missing(*opened, isEdge ? "SyncTrigLvl=102|SyncTrigEdge=103" : "SyncTrigLvl=-40|SyncTrigEdge=0"),
              "");
    const int64_t created = opened->context.Description.CreatingTime / 10'000'000;
    EXPECT_TRUE(created >= before && created <= before + 10) << created;
}

// In T2 it is at first the base resolution, in the end the resolution. A family without a record type, a device
// without a comment: no tag.
TEST(HeaderWriter, TagsThatDependOnTheDevice)
{
    for (MeasMode mode : {MeasMode::T2, MeasMode::T3, MeasMode::Histogramming})
        for (bool update : {false, true}) {
            Header header;
            header.device = {};
            header.device.MeasMode = mode;
            header.context.Description.AveSyncRate = 0; // T3 without a sync
            header.device.BaseResolution = 5.0;
            header.device.Resolution = 10.0;
            EXPECT_TRUE(header.write() && (!update || header.write(true)));
            const std::string tags = listing(header.path());
            const char *value = mode != MeasMode::T2 ? "0E0" : update ? "1E-11" : "5E-12";
            EXPECT_NE(tags.find(fmt::format("Fl MeasDesc_GlobalResolution {}\n", value)), tags.npos) << tags;
            EXPECT_EQ(tags.find("TTResultFormat_TTTRRecType"), tags.npos);
            EXPECT_EQ(tags.find("File_Comment"), tags.npos);
        }
}

// Each leaves no header that could be read back, and `Complete` says so. The overwrite of one that was cut
// short must not reach the file's first bytes.
TEST(HeaderWriter, HeadersThatFail)
{
    auto addLong = [](Header &header, size_t size) {
        addStringTag(header.inWork.CustomTags, "Long", std::string(size, 'x'), 0xFFFFFFFF);
    };
    const std::pair<std::function<void(Header &)>, std::string_view> cases[] = {
        {[](Header &header) { header.inWork.Path += "\\x\\y"; }, "ERR File: Write TGX header "},
        {[](Header &header) { header.device.ChansCfg[1].Index = 2; },
         "INF TGX: Error:    HWInpChan_Name[2] : Index out of bounds (0..1)!"},
        {[](Header &header) { header.device.Comment = "a Header_End"; }, "holds the name Header_End"},
        {[&](Header &header) { addLong(header, 300000); }, "only 262144 can be read back"},
        {[&](Header &header) { addLong(header, 1100000); }, "ERR File: failed to create"},
    };
    for (const auto &[spoil, line] : cases) {
        SCOPED_TRACE(line);
        Header header;
        spoil(header);
        LogCapture log;
        EXPECT_TRUE(header.write());
        EXPECT_FALSE(header.inWork.Complete);
        EXPECT_EQ(log.count(line), 1u);
        const std::string preamble = header.bytes().substr(0, preambleSize);
        header.write(true);
        EXPECT_EQ(header.bytes().substr(0, preambleSize), preamble);
    }
}
