#include "datafiles/header_writer.h"

#include "datafiles/custom_tags.h"
#include "log/text.h"
#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>

using namespace Tessel;
using namespace TestSupport;

namespace {

// Bit by bit, as the format describes it.
uint32_t crcByHand(std::string bytes)
{
    bytes[0] = 2;
    bytes[1] = 4;
    uint32_t crc = 0xFFFFFFFF;
    for (char byte : bytes) {
        crc ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return ~crc;
}

uint32_t storedCrc(const std::string &bytes, size_t headerLength)
{
    uint32_t crc;
    std::memcpy(&crc, bytes.data() + headerLength - 4, sizeof crc);
    return crc;
}

void describe(DeviceConfig &device, MeasContext &context)
{
    device.MeasMode = MeasMode::T3;
    device.LibType = LibType::LM70;
    device.Model = "Lumora 70";
    device.PartNo = "930";
    device.Version = "2.0";
    device.ID = "1234567";
    device.Features = 0x102;
    device.BaseResolution = 5.0;
    device.Resolution = 20.0;
    device.Binning = 2;
    device.RefSource = 10;
    device.TriggerOutput = 100;
    device.SyncDiv = 4;
    device.SyncTrigMode = TrigMode::CFD;
    device.SyncDeadTimeOn = 1;
    device.NumChans = 2;
    device.ChansCfg.resize(2);
    device.ChansCfg[0].Name = "left";
    device.ChansCfg[1].Index = 1;
    device.ChansCfg[1].Name = "eight by";
    device.ChansCfg[1].TrigMode = TrigMode::CFD;
    device.ChansCfg[1].ChanEna = 0;
    device.ChansCfg[1].DeadTimeOn = 1;
    device.MarkerEdges = {1, 0};
    device.MarkerEna = {0, 1};
    device.MarkerHoldoffTime = 30;
    device.Comment = "two lines";
    MeasDescription &description = context.Description;
    description.MeasSubMode = 1;
    description.AcqTime = 2000;
    description.AveSyncRate = 80e6;
    description.StartWords = {1, 2, 3};
    for (int i = 0; i < 4; ++i) context.CountRates[static_cast<size_t>(i)] = 100 * i;
    addIntTag(context.CustomTags, "MyTag", 77, 3);
}

// File_CreatingTime, behind preamble, File_GUID and the creator's name and version.
double createdIn(const std::string &bytes)
{
    double days;
    std::memcpy(&days, bytes.data() + 16 + 88 + 56 + 64 + 40, sizeof days);
    return days;
}

// What `describe` must become; File_GUID and File_CreatingTime as they were found. The end tag has no CRC yet.
TgxFile expectedHeader(const std::string &found)
{
    TgxFile file;
    file.tag("File_GUID", found.substr(64, 38)).tag("CreatorSW_Name", "Tessel");
    file.tag("CreatorSW_Version", "Tessel v1.2.3.7");
    file.dateTime("File_CreatingTime", createdIn(found)).tag("File_Comment", "two lines");
    file.tag("Measurement_Mode", 3).tag("Measurement_SubMode", 1).tag("TTResult_StopReason", -1);
    file.raw("Fast_Load_End", -1, Type::Empty8, 0);
    file.tag("CreatorSW_Modules", 2);
    file.tag("CreatorSW_ModuleName", "LM70lib", 0).tag("CreatorSW_ModuleVers", "1.0", 0);
    file.tag("CreatorSW_ModuleName", "CDlib", 1).tag("CreatorSW_ModuleVers", "3.1", 1);
    file.tag("TTResultFormat_TTTRRecType", 0x00010307).tag("TTResultFormat_BitsPerRecord", 32);
    file.tag("CreatorSW_SVNBuild", 7);
    file.tag("HW_Type", "Lumora 70")
        .tag("HW_PartNo", "930")
        .tag("HW_Version", "2.0")
        .tag("HW_SerialNo", "1234567");
    file.raw("HW_Features", -1, Type::BitSet64, 0x102);
    file.tag("HW_BaseResolution", 5.0 * 1e-12).tag("HW_InpChannels", 2).tag("HW_RefClockSource", 2);
    file.tag("HWTriggerOut_Period", 100 * 1e-9).tag("HW_InputHysteresis", false).tag("HW_Timingmode", 0);
    file.tag("HWSync_Divider", 4).tag("HWSync_TrgMode", 1).tag("HWSync_CFDLevel", 50);
    file.tag("HWSync_CFDZeroCross", 0).tag("HWSync_Offset", 0).tag("HWSync_TdCode", 800);
    file.tag("HWInpChan_Name", "left", 0).tag("HWInpChan_TrgMode", 0, 0).tag("HWInpChan_TrgLevel", -40, 0);
    file.tag("HWInpChan_TrgEdge", 0, 0).tag("HWInpChan_Offset", 0, 0).tag("HWInpChan_Enabled", true, 0);
    file.tag("HWInpChan_TdCode", 0, 0);
    file.tag("HWInpChan_Name", "eight by", 1).tag("HWInpChan_TrgMode", 1, 1).tag("HWInpChan_CFDLevel", 50, 1);
    file.tag("HWInpChan_CFDZeroCross", 0, 1).tag("HWInpChan_Offset", 0, 1).tag("HWInpChan_Enabled", false, 1);
    file.tag("HWInpChan_TdCode", 800, 1);
    file.tag("MeasDesc_Resolution", 20.0 * 1e-12).tag("MeasDesc_BinningFactor", 4).tag("MeasDesc_Offset", 0);
    file.tag("MeasDesc_AcquisitionTime", 2000).tag("HW_Markers", 2);
    file.tag("HWMarkers_RisingEdge", true, 0).tag("HWMarkers_RisingEdge", false, 1);
    file.tag("HWMarkers_Enabled", false, 0).tag("HWMarkers_Enabled", true, 1).tag("HWMarkers_HoldOff", 30);
    return file;
}

struct Results // the tags that the overwrite replaces
{
    double GlobalResolution, SyncRate;
    int Rates[2], StopAfter, NumberOfRecords, WarningFlags, StartWords[3];
};

void addResults(TgxFile &file, const Results &results)
{
    file.tag("MeasDesc_GlobalResolution", results.GlobalResolution);
    file.tag("TTResult_SyncRate", static_cast<int64_t>(results.SyncRate));
    for (int i : {0, 1}) file.tag("TTResult_InputRate", results.Rates[i], i);
    file.tag("TTResult_StopAfter", results.StopAfter).tag("TTResult_NumberOfRecords", results.NumberOfRecords);
    file.raw("TTResult_MDescWarningFlags", -1, Type::BitSet64, static_cast<uint64_t>(results.WarningFlags));
    for (int i : {0, 1, 2}) file.tag("MeasDesc_StartTime", results.StartWords[i], i);
    file.tag("MyTag", 77, 3);
}

// A header of a device in a file of its own.
struct Header
{
    Header() { inWork.Path = normalPath(folder.file("h.tgx")); }

    bool write(bool update = false) { return writeHeader(inWork, device, context, update); }
    std::string bytes() const { return contents(folder.file("h.tgx")); }

    TempFolder folder;
    DeviceConfig device;
    MeasContext context;
    HeaderInWork inWork;
};

} // namespace

TEST(HeaderWriter, BytesOfBothWritesAndTheirCrc)
{
    Header header;
    describe(header.device, header.context);
    header.inWork.Libraries = {{"LM70lib", "1.0"}, {"CDlib", "3.1"}};
    ASSERT_TRUE(header.write());
    ASSERT_TRUE(header.inWork.Complete);

    std::string found = header.bytes();
    TgxFile opening = expectedHeader(found);
    addResults(opening, {1 / 80e6, 80e6, {100, 200}, 0, 0, 0, {1, 2, 3}});
    std::string expected = opening.header();
    ASSERT_EQ(found.size(), expected.size());
    EXPECT_EQ(header.inWork.Length, expected.size());
    EXPECT_EQ(found.substr(0, found.size() - 4), expected.substr(0, expected.size() - 4));
    EXPECT_EQ(storedCrc(found, found.size()), crcByHand(found.substr(0, found.size() - 4)));

    std::ofstream(header.folder.file("h.tgx"), std::ios::binary | std::ios::app) << "records!";
    MeasDescription &description = header.context.Description;
    description.AveSyncRate = 40e6;
    description.StopReason = StopReason::Manual;
    description.StopAfter = 1999;
    description.NumRecs = 2;
    description.WarningsFlag = 5;
    description.StartWords = {4, 5, 6};
    header.device.Comment = "is written at first only";
    ASSERT_TRUE(header.write(true));
    EXPECT_TRUE(header.inWork.Complete);

    TgxFile final = expectedHeader(found);
    addResults(final, {1 / 40e6, 40e6, {0, 100}, 1999, 2, 5, {4, 5, 6}});
    expected = final.header();
    size_t stopReason = expected.find("TTResult_StopReason") + 40;
    std::memset(expected.data() + stopReason, 0, 8);
    expected[stopReason] = 1;
    found = header.bytes();
    ASSERT_EQ(found.size(), expected.size() + 8);
    EXPECT_EQ(found.substr(0, expected.size() - 4), expected.substr(0, expected.size() - 4));
    EXPECT_EQ(storedCrc(found, expected.size()), crcByHand(found.substr(0, expected.size() - 4)));
    EXPECT_EQ(found.substr(expected.size()), "records!");
}

TEST(HeaderWriter, CreatingTimeIsNow)
{
    Header header;
    setenv("TZ", "UTC", 1);
    double before = static_cast<double>(std::time(nullptr));
    header.write();
    double seconds = (createdIn(header.bytes()) - 25569.0) * 86400.0;
    EXPECT_GE(seconds, before - 0.001);
    EXPECT_LE(seconds, before + 10);
}

TEST(HeaderWriter, TagsThatDependOnTheDevice)
{
    struct Case
    {
        std::string_view Title;
        LibType Family;
        std::string Model;
        MeasMode Mode;
        std::string Expected; // a tag that must be there; empty: no record type
    };
    auto type = [](int64_t value) {
        return TgxFile().tag("TTResultFormat_TTTRRecType", value).header().substr(16, 48);
    };
    auto period = [](double value) {
        return TgxFile().tag("MeasDesc_GlobalResolution", value).header().substr(16, 48);
    };
    auto clock = [](int value) { return TgxFile().tag("HW_RefClockSource", value).header().substr(16, 48); };
    using enum LibType;
    using enum MeasMode;
    const Case cases[] = {
        {"ZP T2", ZP, "", T2, type(0x00010207)},
        {"ZP T3", ZP, "", T3, type(0x00010307)},
        {"CD T2", CD, "", T2, type(0x01010204)},
        {"CD T3", CD, "", T3, type(0x01010304)},
        {"SV40 N T2", SV40, "Sarvex 40 N", T2, type(0x00010205)},
        {"SV40 N T3", SV40, "Sarvex 40 N", T3, type(0x00010205)},
        {"SV40 P T3", SV40, "Sarvex 40 P", T3, type(0x00010206)},
        {"CD90 T3", CD90, "", T3, type(0x00010307)},
        {"SV40, other model", SV40, "Sarvex 40", T2, ""},
        {"histogramming", ZP, "", Histogramming, ""},
        {"unknown family", Dummy, "", T2, ""},
        {"T2 resolution", ZP, "", T2, period(4.0 * 1e-12)},
        {"T3 without sync", ZP, "", T3, period(0.0)},
        {"ZP clock", ZP, "", T3, clock(9)},
        {"CD clock", CD, "", T3, clock(1)},
        {"SV40 clock", SV40, "", T3, clock(0)},
        {"LM70 clock", LM70, "", T3, clock(3)},
        {"no family, no clock", Undefined, "", T3, clock(0)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Title);
        Header header;
        header.device.LibType = c.Family;
        header.device.Model = c.Model;
        header.device.MeasMode = c.Mode;
        header.device.BaseResolution = 4.0;
        header.device.RefSource = 11;
        LogCapture log;
        EXPECT_TRUE(header.write());
        std::string found = header.bytes();
        EXPECT_NE(found.find(c.Expected.empty() ? "TTResultFormat_BitsPerRecord" : c.Expected), found.npos);
        EXPECT_EQ(found.find("File_Comment"), found.npos);
        EXPECT_TRUE(!c.Expected.empty() || found.find("TTResultFormat_TTTRRecType") == found.npos);
        EXPECT_EQ(log.count("WRN Undefined MV_TAGID_TTRESULTFORMAT_TTTRRECTYPE for libType dummy"),
                  c.Family == Dummy ? 1u : 0u);
    }
}

TEST(HeaderWriter, ReferenceSourceThatTheFamilyRefuses)
{
    Header header;
    header.device.LibType = LibType::LM70;
    header.device.ID = "77";
    header.device.RefSource = 5;
    LogCapture log;
    header.write();
    EXPECT_EQ(log.count("WRN Config: Initialize is not supported for RefSource 5 @77"), 1u);
}

// At first it is the base resolution, in the end the resolution.
TEST(HeaderWriter, GlobalResolutionOfT2)
{
    Header header;
    header.device.MeasMode = MeasMode::T2;
    header.device.BaseResolution = 5.0;
    header.device.Resolution = 10.0;
    for (bool update : {false, true}) {
        ASSERT_TRUE(header.write(update));
        std::string tag = TgxFile().tag("MeasDesc_GlobalResolution", (update ? 10.0 : 5.0) * 1e-12).header();
        EXPECT_NE(header.bytes().find(tag.substr(16, 48)), std::string::npos) << update;
    }
}

// Each leaves no header that could be read back, and `Complete` says so.
TEST(HeaderWriter, HeadersThatFail)
{
    struct Case
    {
        std::string_view Title;
        void (*Spoil)(Header &);
        std::string_view Line;
    };
    const Case cases[] = {
        {"no folder", [](Header &header) { header.inWork.Path += "\\x\\y"; }, "ERR File: Write TGX header "},
        {"channel row beyond the channels", [](Header &header) { header.device.ChansCfg[1].Index = 2; },
         "INF TGX: Error:    HWInpChan_Name[2] : Index out of bounds (0..1)!"},
        {"the end tag's name in a text", [](Header &header) { header.device.Comment = "a Header_End"; },
         "holds the name Header_End"},
        {"too long to be read back",
         [](Header &header) {
             addStringTag(header.context.CustomTags, "Long", std::string(300000, 'x'), 0xFFFFFFFF);
         },
         "only 262144 can be read back"},
        {"too long to be sealed",
         [](Header &header) {
             addStringTag(header.context.CustomTags, "Long", std::string(1100000, 'x'), 0xFFFFFFFF);
         },
         "ERR File: failed to create"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Title);
        Header header;
        describe(header.device, header.context);
        c.Spoil(header);
        LogCapture log;
        EXPECT_TRUE(header.write());
        EXPECT_FALSE(header.inWork.Complete);
        EXPECT_EQ(log.count(c.Line), 1u);
    }
}

// The overwrite of a header that was cut short must not reach the file's first bytes.
TEST(HeaderWriter, OverwriteOfACutHeaderSparesThePreamble)
{
    Header header;
    describe(header.device, header.context);
    header.device.ChansCfg[0].Index = -1;
    header.write();
    const std::string before = header.bytes();
    EXPECT_TRUE(header.write(true));
    EXPECT_FALSE(header.inWork.Complete);
    EXPECT_EQ(header.bytes(), before);
}
