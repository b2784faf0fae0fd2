#include "datafiles/file_device.h"

#include "log/text.h"
#include "opened.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

using namespace Tessel;
using namespace TestSupport;

// What a field takes as it stands in its tag, the round trip through our own header shows.
TEST(FileDevice, TagsWithAnEffectOfTheirOwn)
{
    const double infinite = std::numeric_limits<double>::infinity();
    const TgxFile noInts = TgxFile()
                               .raw("TTResult_NumberOfRecords", -1, Type::Int8, ~uint64_t{0})
                               .raw("HW_PartNo", -1, Type::Int8, ~uint64_t{0});
    const std::pair<TgxFile, std::string_view> cases[] = {
        {one("File_Comment", "a\\\\b\r\nc\\d").tag("HW_Type", "Lumora 7"), "Comment=a\\b\\r\\nc\\d|LibType=3"},
        {TgxFile().wide("File_Comment", u"abc").tag("HW_SerialNo", "1234"), "Comment=a|ID=1234@a.tgx"},
        {one("File_Comment", "a\xFFz").tag("HW_SerialNo", -5), "Comment=a\uFFFDz|ID=-5@a.tgx"},
        {mode(0).tag("MeasDesc_GlobalResolution", 4e-12), "NumBins=65536|SyncPeriodPs=1"},
        {mode(2).tag("MeasDesc_GlobalResolution", 4e-12), "NumBins=65536|SyncPeriodPs=4"},
        {mode(3).tag("Measurement_Mode", 7), "MeasMode=7|NumBins=32768"},
        {mode(2).tag("HW_BaseResolution", 5e-12), "BaseResolution=5|SyncPeriodPs=5"},
        {mode(3).tag("HW_BaseResolution", 5e-12), "BaseResolution=5|SyncPeriodPs=1|NumBins=32768"},
        {one("HW_BaseResolution", 4.6e-12).tag("HW_SerialNo", 1.5), "ResolutionPs=5|ID="},
        {one("HW_BaseResolution", -1.0), "ResolutionPs=0"},
        {mode(2).tag("HW_BaseResolution", 1e200), "SyncPeriodPs=9223372036854775807"},
        {one("HW_BaseResolution", infinite), "BaseResolution=1"},
        {one("HW_InpChannels", 2).tag("HWInpChan_Name", "x", 1).tag("HWInpChan_Name", "y", 2),
         "ChansCfg=2|0.Name=Channel 1|1.Name=x"},
        {one("HW_InpChannels", 4095), "NumChans=4095|ChansCfg=4095|4094.Index=4094"},
        {one("HW_InpChannels", 4096), "NumChans=0|ChansCfg=0"},
        {one("HWInpChan_Offset", 9, 4096).tag("HWInpChan_Name", "x", 0), "ChansCfg=0"},
        {one("HWInpChan_TrgLevel", -77, 2).tag("HWInpChan_Enabled", 9, 0),
         "ChansCfg=3|2.Index=2|2.TrigLvl=-77|0.ChanEna=1"},
        {one("HW_Type", "Sarvex 40 N").tag("HWInpChan_TdCode", 3, 0).tag("HWInpChan_TdCode", 44000, 1),
         "0.DeadTime=88000|1.DeadTime=180000"},
        {one("HWInpChan_TdCode", 3, 0).tag("HW_Type", "Sarvex 40 N"), "0.DeadTime=3"},
        {one("HWTriggerOut_Period", 1.0), "TriggerOutput=0"}, // the low half of the double
        {one("HW_InputHysteresis", 9).tag("HWSync_Divider", 0x100000008), "HystCode=1|SyncDiv=8"},
        {one("HW_Features", 0xF00000123).tag("MeasDesc_Resolution", 16.4e-12), "Features=291|Resolution=16"},
        {one("MeasDesc_Resolution", std::nan("")), "Resolution=1"},
        {one("MeasDesc_BinningFactor", 6).tag("MeasDesc_BinningFactor", 0), "Binning=3"},
        {TgxFile().dateTime("File_CreatingTime", 25569.5), "CreatingTime=432000000000"},
        {TgxFile().dateTime("File_CreatingTime", 25569.0 + 1.9 / 86400), "CreatingTime=10000000"},
        {TgxFile().dateTime("File_CreatingTime", 1e300), "CreatingTime=9223372036854775807"},
        {one("HW_Markers", 2), "MarkerEdges=0 0"},
        {one("HW_Markers", 100000).tag("HWMarkers_RisingEdge", true, 5),
         "MarkerEna=0 0 0 0|MarkerEdges=0 0 0 0 0 1"},
        {one("HWMarkers_Enabled", 9, 0).tag("HWMarkers_Enabled", 9, -3), "MarkerEna=1 0 0 0"},
        {mode(3).tag("MeasDesc_GlobalResolution", 12.5e-9), "AveSyncRate=80000000|SyncPeriodPs=12500"},
        {mode(3).tag("MeasDesc_GlobalResolution", 0.0), "SyncPeriodPs=1"},
        {mode(3).tag("MeasDesc_GlobalResolution", infinite), "AveSyncRate=0"},
        {mode(3).tag("MeasDesc_GlobalResolution", 1e-320), "AveSyncRate=0"},
        {mode(3).tag("TTResult_SyncRate", 80000000), "AveSyncRate=80000000|SyncPeriodPs=12500"},
        {mode(2).tag("TTResult_SyncRate", 76900001), "SyncPeriodPs=1|SyncRate=76900001"},
        {mode(3).tag("MeasDesc_GlobalResolution", 2.5).tag("TTResult_SyncRate", 0), "AveSyncRate=0.4"},
        {one("TTResult_InputRate", 12345, 255), "CountRate[255]=12345"},
        {one("TTResult_InputRate", 12345, 256), "CountRate[255]=0"},
        {one("MeasDesc_StartTime", 0x1FFFFFFFF, 0)
             .tag("MeasDesc_StartTime", 7, 1)
             .tag("MeasDesc_StartTime", 5, 3),
         "StartWords=4294967295 7 0"},
        {noInts, "NumRecs=18446744073709551615|PartNo="},
        {one("HW_PartNo", "a").tag("HW_PartNo", "b"), "PartNo=b"},
        {one("HWSync_TrgMode", 1).tag("HW_RefClockSource", 1), "RefSource=0|SyncTrigMode=0"},
    };
    QuietDataFile quiet;
    for (const auto &[file, lines] : cases) EXPECT_EQ(missing(*openBytes(file), lines), "");
}

TEST(FileDevice, DeviceDescriptionAndTrace)
{
    using namespace std::chrono;
    auto now = [] { return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count(); };
    TempFolder folder;
    LogCapture log;
    const int64_t before = now();
    std::string path = TgxFile::t3(1, 4.0)
                           .tag("TTResultFormat_TTTRRecType", 0x00010303)
                           .tag("HW_Type", "Lumora 7")
                           .records({1, 2})
                           .write(folder.file("b.tgx"));
    auto opened = openPath(path);
    const Device &device = opened->device;
    std::string normal = normalPath(path);
    EXPECT_EQ(
        missing(*opened, fmt::format("DeviceType=1|FileDevicePath={}|ID=1000001@b.tgx|StopReason=-1", normal)),
        "");
    EXPECT_EQ(device.DataStart, std::filesystem::file_size(path) - 8);
    EXPECT_TRUE(device.IsConfigured && !device.IsOpen);

    // What no tag says of the run is of now.
    const MeasDescription &description = opened->context.Description;
    EXPECT_GE(description.StartTime, before * 10);
    EXPECT_LE(description.StartTime, now() * 10);
    EXPECT_EQ(description.StartTime, description.CreatingTime);
    uint64_t words = uint64_t{description.StartWords[1]} << 32 | description.StartWords[0];
    EXPECT_EQ(static_cast<int64_t>(words) * 10, description.StartTime);
    EXPECT_EQ(description.AveSyncPeriod, 1e300);

    for (const std::string &line :
         {"DEB OpenTGXFile " + normal, std::string("INF Preamble: MVTTTR v1.0.0.0"),
          std::string("ERR File: TTResultFormat_TTTRRecType 00010303 unsupported record type!"),
          std::string("ERR File: Not supported HW_Type: Lumora 7!"),
          std::string("Identifier: Measurement_Mode "), std::string("Identifier: Header_End")})
        EXPECT_EQ(log.count(line), 1u) << line;
    EXPECT_EQ(log.count("WRN"), 0u);
}
