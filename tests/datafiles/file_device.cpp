#include "datafiles/file_device.h"

#include "log/text.h"
#include "opened.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>

using namespace Tessel;
using namespace TestSupport;

namespace {

template <class T>
std::string shown(const T &value)
{
    if constexpr (std::is_enum_v<T>)
        return shown(static_cast<int32_t>(value));
    else
        return fmt::format("{}", value);
}
std::string shown(const std::vector<int32_t> &values)
{
    return fmt::format("{}", fmt::join(values, " "));
}
template <class T>
std::string shown(const std::atomic<T> &value)
{
    return shown(value.load());
}

using See = std::function<std::string(const Opened &)>;

template <class T>
See device(T DeviceConfig::*field)
{
    return [=](const Opened &opened) { return shown(opened.device.*field); };
}
template <class T>
See device(T Device::*field)
{
    return [=](const Opened &opened) { return shown(opened.device.*field); };
}
template <class T>
See described(T MeasDescription::*field)
{
    return [=](const Opened &opened) { return shown(opened.context.Description.*field); };
}
template <class T>
See context(T MeasContext::*field)
{
    return [=](const Opened &opened) { return shown(opened.context.*field); };
}
template <class T>
See channel(size_t row, T ChannelRow::*field)
{
    return [=](const Opened &opened) { return shown(opened.device.ChansCfg.at(row).*field); };
}
See channelNames()
{
    return [](const Opened &opened) {
        std::string names;
        for (const ChannelRow &row : opened.device.ChansCfg)
            names += fmt::format("{}:{} ", row.Index, row.Name);
        return names;
    };
}
See rate(size_t entry)
{
    return [=](const Opened &opened) { return shown(opened.context.CountRates.at(entry)); };
}
See startWord(size_t word)
{
    return [=](const Opened &opened) { return shown(opened.context.Description.StartWords.at(word)); };
}

const double infinite = std::numeric_limits<double>::infinity();

} // namespace

TEST(FileDevice, EveryTagThatHasAnEffect)
{
    struct Case
    {
        std::string_view Title;
        TgxFile File;
        See Seen;
        std::string_view Expected;
    };
    const Case cases[] = {
        {"comment, folded", one("File_Comment", "a\\\\b\r\nc\\d"), device(&Device::Comment), "a\\b\\r\\nc\\d"},
        {"comment, wide: first letter only", TgxFile().wide("File_Comment", u"abc"), device(&Device::Comment),
         "a"},
        {"comment, no UTF-8", one("File_Comment", "a\xFFz"), device(&Device::Comment), "a\uFFFDz"},
        {"mode", mode(2), device(&Device::MeasMode), "2"},
        {"mode 2, bins", mode(2), device(&Device::NumBins), "65536"},
        {"mode 3, bins", mode(3), device(&Device::NumBins), "32768"},
        {"mode 7, bins", mode(3).tag("Measurement_Mode", 7), device(&Device::NumBins), "32768"},
        {"sub-mode", one("Measurement_SubMode", 4), described(&MeasDescription::MeasSubMode), "4"},
        {"type", one("HW_Type", "Zephyrion 5"), device(&Device::Model), "Zephyrion 5"},
        {"part number", one("HW_PartNo", "930"), device(&Device::PartNo), "930"},
        {"version", one("HW_Version", "2.0"), device(&Device::Version), "2.0"},
        {"serial", one("HW_SerialNo", "1234"), device(&Device::ID), "1234@a.tgx"},
        {"serial, number", one("HW_SerialNo", -5), device(&Device::ID), "-5@a.tgx"},
        {"serial, other type", one("HW_SerialNo", 1.5), device(&Device::ID), ""},
        {"no serial", TgxFile(), device(&Device::ID), ""},
        {"features", one("HW_Features", 0x123), device(&Device::Features), "291"},
        {"base resolution", mode(2).tag("HW_BaseResolution", 5e-12), device(&Device::BaseResolution), "5"},
        {"base resolution, T2 period", mode(2).tag("HW_BaseResolution", 5e-12), device(&Device::SyncPeriodPs),
         "5"},
        {"base resolution, T3 period", mode(3).tag("HW_BaseResolution", 5e-12), device(&Device::SyncPeriodPs),
         "1"},
        {"base resolution, rounded", one("HW_BaseResolution", 4.6e-12), context(&MeasContext::ResolutionPs),
         "5"},
        {"base resolution, negative", one("HW_BaseResolution", -1.0), context(&MeasContext::ResolutionPs), "0"},
        {"base resolution, huge", mode(2).tag("HW_BaseResolution", 1e200), device(&Device::SyncPeriodPs),
         "9223372036854775807"},
        {"base resolution, infinite", one("HW_BaseResolution", infinite), device(&Device::BaseResolution), "1"},
        {"channels", one("HW_InpChannels", 2), channelNames(), "0:Channel 1 1:Channel 2 "},
        {"channels, negative", one("HW_InpChannels", -1), device(&Device::NumChans), "0"},
        {"channels, as many as they say", one("HW_InpChannels", 4095), device(&Device::NumChans), "4095"},
        {"channels, too many", one("HW_InpChannels", 4096), device(&Device::NumChans), "0"},
        {"channels, named", one("HW_InpChannels", 2).tag("HWInpChan_Name", "x", 1), channelNames(),
         "0:Channel 1 1:x "},
        {"channel name makes no row", one("HWInpChan_Name", "x", 0), channelNames(), ""},
        {"channel name beyond the rows", one("HW_InpChannels", 1).tag("HWInpChan_Name", "x", 1), channelNames(),
         "0:Channel 1 "},
        {"channel level makes rows", one("HWInpChan_TrgLevel", 7, 2), channelNames(), "0: 0: 2: "},
        {"channel level", one("HWInpChan_TrgLevel", -77, 2), channel(2, &ChannelRow::TrigLvl), "-77"},
        {"channel edge", one("HWInpChan_TrgEdge", 1, 0), channel(0, &ChannelRow::TrigEdge), "1"},
        {"channel offset", one("HWInpChan_Offset", -9, 0), channel(0, &ChannelRow::ChanOffs), "-9"},
        {"channel off", one("HWInpChan_Enabled", false, 0), channel(0, &ChannelRow::ChanEna), "0"},
        {"channel on", one("HWInpChan_Enabled", true, 0), channel(0, &ChannelRow::ChanEna), "1"},
        {"channel, negative index", one("HWInpChan_Offset", 9, -1), channelNames(), ""},
        {"channel, index too large", one("HWInpChan_Offset", 9, 4096), channelNames(), ""},
        {"dead time", one("HWInpChan_TdCode", 3, 0), channel(0, &ChannelRow::DeadTime), "3"},
        {"dead time, code", one("HW_Type", "Sarvex 40 N").tag("HWInpChan_TdCode", 3, 0),
         channel(0, &ChannelRow::DeadTime), "88000"},
        {"dead time, code too large", one("HW_Type", "Sarvex 40 N").tag("HWInpChan_TdCode", 44000, 0),
         channel(0, &ChannelRow::DeadTime), "180000"},
        {"dead time before the type", one("HWInpChan_TdCode", 3, 0).tag("HW_Type", "Sarvex 40 N"),
         channel(0, &ChannelRow::DeadTime), "3"},
        {"trigger out, low half", one("HWTriggerOut_Period", 1.0), device(&Device::TriggerOutput), "0"},
        {"hysteresis", one("HW_InputHysteresis", true), device(&Device::HystCode), "1"},
        {"timing mode", one("HW_Timingmode", 1), device(&Device::TimingMode), "1"},
        {"sync divider", one("HWSync_Divider", 8), device(&Device::SyncDiv), "8"},
        {"low half only", one("HWSync_Divider", 0x100000008), device(&Device::SyncDiv), "8"},
        {"sync level", one("HWSync_TrgLevel", -50), device(&Device::SyncTrigLvl), "-50"},
        {"sync edge", one("HWSync_TrgEdge", 1), device(&Device::SyncTrigEdge), "1"},
        {"sync offset", one("HWSync_Offset", -250), device(&Device::SyncChannelOffset), "-250"},
        {"resolution", one("MeasDesc_Resolution", 16e-12), device(&Device::Resolution), "16"},
        {"resolution, no number", one("MeasDesc_Resolution", std::nan("")), device(&Device::Resolution), "1"},
        {"binning", one("MeasDesc_BinningFactor", 8), device(&Device::Binning), "3"},
        {"binning, rounded", one("MeasDesc_BinningFactor", 6), device(&Device::Binning), "3"},
        {"binning, 0", one("MeasDesc_BinningFactor", 8).tag("MeasDesc_BinningFactor", 0),
         device(&Device::Binning), "3"},
        {"offset", one("MeasDesc_Offset", 12), device(&Device::Offset), "12"},
        {"acquisition time", one("MeasDesc_AcquisitionTime", 1000), described(&MeasDescription::AcqTime),
         "1000"},
        {"stop after", one("TTResult_StopAfter", 999), described(&MeasDescription::StopAfter), "999"},
        {"warnings", one("TTResult_MDescWarningFlags", 5), described(&MeasDescription::WarningsFlag), "5"},
        {"created", TgxFile().dateTime("File_CreatingTime", 25569.5), described(&MeasDescription::CreatingTime),
         "432000000000"},
        {"created, whole seconds", TgxFile().dateTime("File_CreatingTime", 25569.0 + 1.9 / 86400),
         described(&MeasDescription::CreatingTime), "10000000"},
        {"created, absurd", TgxFile().dateTime("File_CreatingTime", 1e300),
         described(&MeasDescription::CreatingTime), "9223372036854775807"},
        {"stop reason", one("TTResult_StopReason", -9), described(&MeasDescription::StopReason), "-9"},
        {"markers", one("HW_Markers", 2), device(&Device::MarkerEdges), "0 0"},
        {"markers, too many", one("HW_Markers", 100000), device(&Device::MarkerEna), "0 0 0 0"},
        {"marker edge", one("HWMarkers_RisingEdge", true, 5), device(&Device::MarkerEdges), "0 0 0 0 0 1"},
        {"marker enabled", one("HWMarkers_Enabled", 9, 0), device(&Device::MarkerEna), "1 0 0 0"},
        {"marker, negative index", one("HWMarkers_Enabled", 9, -3), device(&Device::MarkerEna), "0 0 0 0"},
        {"hold-off", one("HWMarkers_HoldOff", 30), device(&Device::MarkerHoldoffTime), "30"},
        {"global resolution, T3 rate", mode(3).tag("MeasDesc_GlobalResolution", 12.5e-9),
         described(&MeasDescription::AveSyncRate), "80000000"},
        {"global resolution, T3", mode(3).tag("MeasDesc_GlobalResolution", 12.5e-9),
         device(&Device::SyncPeriodPs), "12500"},
        {"global resolution, T2", mode(2).tag("MeasDesc_GlobalResolution", 4e-12),
         device(&Device::SyncPeriodPs), "4"},
        {"global resolution 0", mode(3).tag("MeasDesc_GlobalResolution", 0.0), device(&Device::SyncPeriodPs),
         "1"},
        {"global resolution, other mode", mode(0).tag("MeasDesc_GlobalResolution", 4e-12),
         device(&Device::SyncPeriodPs), "1"},
        {"global resolution, infinite", mode(3).tag("MeasDesc_GlobalResolution", infinite),
         described(&MeasDescription::AveSyncRate), "0"},
        {"global resolution, tiny", mode(3).tag("MeasDesc_GlobalResolution", 1e-320),
         described(&MeasDescription::AveSyncRate), "0"},
        {"sync rate", mode(3).tag("TTResult_SyncRate", 80000000), described(&MeasDescription::AveSyncRate),
         "80000000"},
        {"sync rate, T3 period", mode(3).tag("TTResult_SyncRate", 80000000), device(&Device::SyncPeriodPs),
         "12500"},
        {"sync rate, T2 period", mode(2).tag("TTResult_SyncRate", 80000000), device(&Device::SyncPeriodPs),
         "1"},
        {"sync rate of the context", mode(3).tag("TTResult_SyncRate", 76900001),
         context(&MeasContext::SyncRate), "76900001"},
        {"sync rate 0 after the period",
         mode(3).tag("MeasDesc_GlobalResolution", 2.5).tag("TTResult_SyncRate", 0),
         described(&MeasDescription::AveSyncRate), "0.4"},
        {"input rate", one("TTResult_InputRate", 12345, 3), rate(3), "12345"},
        {"input rate, no entry", one("TTResult_InputRate", 12345, 256), rate(255), "0"},
        {"start, low", one("MeasDesc_StartTime", 0x1FFFFFFFF, 0), startWord(0), "4294967295"},
        {"start, high", one("MeasDesc_StartTime", 7, 2), startWord(2), "7"},
        {"start, other index", one("MeasDesc_StartTime", 7, 3), startWord(2), "0"},
        {"records", TgxFile().raw("TTResult_NumberOfRecords", -1, Type::Int8, ~uint64_t{0}),
         described(&MeasDescription::NumRecs), "18446744073709551615"},
        {"twice: the last one stays", one("HW_PartNo", "a").tag("HW_PartNo", "b"), device(&Device::PartNo),
         "b"},
        {"unknown tag", one("HWSync_TrgMode", 1), device(&Device::MeasMode), "3"},
        {"text of a tag without block", TgxFile().raw("HW_PartNo", -1, Type::Int8, ~uint64_t{0}),
         device(&Device::PartNo), ""},
    };
    QuietDataFile quiet;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Title);
        auto opened = openBytes(c.File);
        ASSERT_TRUE(opened->good);
        EXPECT_EQ(c.Seen(*opened), c.Expected);
    }
}

TEST(FileDevice, FamilyFromTheBeginningOfTheModel)
{
    const std::pair<const char *, LibType> cases[] = {
        {"Zephyrion 260", LibType::ZP}, {"Cordalis", LibType::CD},    {"Cordalis 90", LibType::CD},
        {"Lumora 70", LibType::LM70},   {"Sarvex40", LibType::SV40},  {"Sarvex 40 P", LibType::SV40},
        {"Lumora 7", LibType::LM70},    {"zephyrion", LibType::LM70}, {"", LibType::LM70},
    };
    for (const auto &[model, family] : cases) {
        LogCapture log;
        auto opened = openBytes(one("HW_Type", model));
        EXPECT_EQ(opened->device.LibType, family) << model;
        bool known = family != LibType::LM70 || std::string_view(model) == "Lumora 70";
        EXPECT_EQ(log.count(fmt::format("ERR File: Not supported HW_Type: {}!", model)), known ? 0u : 1u)
            << model;
    }
}

TEST(FileDevice, DeviceAndTrace)
{
    TempFolder folder;
    LogCapture log;
    std::string path = TgxFile::t3(1, 4.0)
                           .tag("TTResultFormat_TTTRRecType", 0x00010303)
                           .records({1, 2})
                           .write(folder.file("b.tgx"));
    auto opened = openPath(path);
    const Device &device = opened->device;
    std::string normal = normalPath(path);
    EXPECT_EQ(device.DeviceType, DeviceType::File);
    EXPECT_EQ(device.FileDevicePath, normal);
    EXPECT_EQ(device.DataStart, std::filesystem::file_size(path) - 8);
    EXPECT_EQ(device.ID, "1000001@b.tgx");
    EXPECT_TRUE(device.IsConfigured);
    EXPECT_FALSE(device.IsOpen);
    EXPECT_EQ(log.count("DEB OpenTGXFile " + normal), 1u);
    EXPECT_EQ(log.count("INF Preamble: MVTTTR v1.0.0.0"), 1u);
    EXPECT_EQ(log.count("ERR File: TTResultFormat_TTTRRecType 00010303 unsupported record type!"), 1u);
    EXPECT_EQ(
        log.count(
            "INF Identifier: Measurement_Mode                 Idx:               -1 Type: Int8             "
            "tValue:                3"),
        1u);
    EXPECT_EQ(log.count("Identifier: Header_End"), 1u);
    EXPECT_EQ(log.count("WRN"), 0u);
}

TEST(FileDevice, FreshDescriptionIsOfNow)
{
    using namespace std::chrono;
    auto now = [] { return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count(); };
    QuietDataFile quiet;
    int64_t before = now();
    auto opened = openBytes(TgxFile());
    const MeasDescription &description = opened->context.Description;
    EXPECT_GE(description.StartTime, before * 10);
    EXPECT_LE(description.StartTime, now() * 10);
    EXPECT_EQ(description.StartTime, description.CreatingTime);
    uint64_t words = uint64_t{description.StartWords[1]} << 32 | description.StartWords[0];
    EXPECT_EQ(static_cast<int64_t>(words) * 10, description.StartTime);
    EXPECT_EQ(description.AveSyncPeriod, 1e300);
    EXPECT_EQ(description.StopReason, StopReason::Unknown);
}
