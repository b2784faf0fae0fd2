// The parameter exports against fake libraries: what reaches the library, what is remembered, what is refused.
#include "devices/acquisition.h"
#include "support/instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

namespace {

using Range = std::pair<int32_t, int32_t>;
using Ranges = std::array<std::optional<Range>, 5>; // ZP, CD, SV40, LM70, CD90; none: the family lacks it

constexpr std::optional<Range> none{};
constexpr Range any{INT32_MIN, INT32_MAX};

constexpr Ranges all(Range range)
{
    return {range, range, range, range, range};
}

struct Setter
{
    std::string Name;   // in warnings and refusals
    std::string Sent;   // {} is the value
    std::string Limits; // parameter and function in a warning; empty: none is logged
    std::array<std::optional<Range>, 5> Ranges;
    bool (*Set)(int32_t);
    std::function<int32_t &(Device &)> Field;
    MeasMode Mode = MeasMode::T3;
    std::string After{}; // calls that follow
};

std::function<int32_t &(Device &)> of(int32_t DeviceConfig::*member)
{
    return [member](Device &device) -> int32_t & { return device.*member; };
}

// The functions for an input get the third one.
std::function<int32_t &(Device &)> of(int32_t ChannelRow::*member)
{
    return [member](Device &device) -> int32_t & { return device.ChansCfg.at(2).*member; };
}

template <bool (*set)(const char16_t *, int32_t)>
bool call(int32_t value)
{
    return set(nullptr, value);
}

template <auto set, auto... arguments>
bool fixed()
{
    return set(nullptr, arguments...);
}

const std::vector<Setter> &setters()
{
    const Ranges edge = {{{{-1200, 1200}}, none, {{-1200, 1200}}, {{-1500, 1500}}, {{-1200, 1200}}}};
    const Ranges cfd = {{none, {{0, 1000}}, {{-1200, 0}}, {{-1500, 0}}, {{-1200, 0}}}};
    const Ranges zero = {{none, {{0, 40}}, {{-40, 0}}, {{-100, 0}}, {{-100, 0}}}};
    const auto zpLmCd90 = [](Range range) { return Ranges{{range, none, none, range, range}}; };
    static const std::vector<Setter> table = {
        {"SetSyncDiv", "SetSyncDiv 0 {}", "syncDiv in SetSyncDiv",
         Ranges{{{{1, 16}}, {{1, 16}}, {{1, 8}}, {{1, 8}}, {{1, 16}}}}, call<setSyncDiv>,
         of(&DeviceConfig::SyncDiv)},
        {"SetSyncEdgeTrg", "SetSyncEdgeTrg 0 {} 1", "trigLvlSync in SetSyncEdgeTrig", edge,
         [](int32_t v) { return setSyncEdgeTrig(nullptr, v, 1); }, of(&DeviceConfig::SyncTrigLvl)},
        {"SetSyncCFD", "SetSyncCFD 0 {} 0", "discrLvlSync in SetSyncCFD", cfd,
         [](int32_t v) { return setSyncCFD(nullptr, v, 0); }, of(&DeviceConfig::SyncDiscrLvl)},
        {"SetSyncCFD", "SetSyncCFD 0 0 {}", "zeroXLvlSync in SetSyncCFD", zero,
         [](int32_t v) { return setSyncCFD(nullptr, 0, v); }, of(&DeviceConfig::SyncZeroxLvL)},
        {"SetSyncChannelOffset", "SetSyncChannelOffset 0 {}", "syncChannelOffset @{} in SetSyncChannelOffset",
         all({-99999, 99999}), call<setSyncChannelOffset>, of(&DeviceConfig::SyncChannelOffset)},
        {"SetSyncChannelEnable", "SetSyncChannelEnable 0 {}", "", zpLmCd90(any), call<setSyncChannelEnable>,
         of(&DeviceConfig::SyncChannelEnable)},
        {"SetInputHysteresis", "SetInputHysteresis 0 {}", "hystCode in SetInputHysteresis", zpLmCd90({0, 1}),
         call<setInputHysteresis>, of(&DeviceConfig::HystCode)},
        {"SetTimingMode", "SetTimingMode 0 {}", "", Ranges{{none, none, {{0, 1}}, none, none}},
         call<setTimingMode>, of(&DeviceConfig::TimingMode)},
        {"SetBinning", "SetBinning 0 {}", "binning in SetBinning", all({0, 7}), call<setBinning>,
         of(&DeviceConfig::Binning), MeasMode::Histogramming, "; GetResolution 0"},
        {"SetOffset", "SetOffset 0 {}", "offset in SetOffset",
         Ranges{{{{0, 100000000}}, {{0, 500000}}, {{0, 100000000}}, {{0, 100000000}}, {{0, 100000000}}}},
         call<setOffset>, of(&DeviceConfig::Offset)},
        {"SetHistoLength", "SetHistoLen 0 {}", "lengthCode in SetHistoLength",
         Ranges{{{{0, 6}}, {{0, 6}}, {{0, 5}}, {{0, 9}}, {{0, 7}}}}, call<setHistoLength>,
         of(&DeviceConfig::LengthCode), MeasMode::Histogramming},
        {"SetTriggerOutput", "SetTriggerOutput 0 {}", "",
         Ranges{{{{0, 16777215}}, none, {{0, 16777215}}, {{0, 16777215}}, {{0, 16777215}}}},
         call<setTriggerOutput>, of(&DeviceConfig::TriggerOutput)},
        {"SetLEDBrightness", "SetLEDBrightness 0 {}", "", Ranges{{none, none, none, none, {{0, 2}}}},
         [](int32_t v) { return SetLEDBrightness(currentDevice()->device, v); },
         of(&DeviceConfig::LedBrightness)},
        {"SetMarkerEdges", "SetMarkerEdges 0 1 {} 0 1", "", all({0, 1}),
         [](int32_t v) { return setMarkerEdges(nullptr, 9, v, -9, 1); },
         [](Device &d) -> int32_t & { return d.MarkerEdges.at(1); }},
        {"SetMarkerEnable", "SetMarkerEnable 0 0 0 1 {}", "", all({0, 1}),
         [](int32_t v) { return setMarkerEnable(nullptr, -1, 0, 2, v); },
         [](Device &d) -> int32_t & { return d.MarkerEna.at(3); }, MeasMode::T2},
        {"SetMarkerHoldoffTime", "SetMarkerHoldoffTime 0 {}", "holdoffTime in SetMarkerHoldoffTime",
         Ranges{{{{0, 25500}}, {{0, 524296}}, {{0, 25500}}, {{0, 25500}}, {{0, 25500}}}},
         call<setMarkerHoldoffTime>, of(&DeviceConfig::MarkerHoldoffTime)},
        {"SetOflCompression", "SetOflCompression 0 {}", "holdTime in SetOflCompression", zpLmCd90({0, 255}),
         call<setOflCompression>, of(&DeviceConfig::HoldTime)},
        {"SetInputEdgeTrig", "SetInputEdgeTrg 0 2 {} 1", "trigLvl in SetInputEdgeTrig", edge,
         [](int32_t v) { return setInputEdgeTrig(nullptr, 2, v, 1); }, of(&ChannelRow::TrigLvl)},
        {"SetInputCFD", "SetInputCFD 0 2 {} 0", "discrLvl in SetInputCFD", cfd,
         [](int32_t v) { return setInputCFD(nullptr, 2, v, 0); }, of(&ChannelRow::DiscrLvl)},
        {"SetInputCFD", "SetInputCFD 0 2 0 {}", "zerox in SetInputCFD", zero,
         [](int32_t v) { return setInputCFD(nullptr, 2, 0, v); }, of(&ChannelRow::ZeroXLvl)},
        {"SetInputChannelOffset", "SetInputChannelOffset 0 2 {}", "chanOffs in SetInputChannelOffset",
         all({-99999, 99999}), [](int32_t v) { return setInputChannelOffset(nullptr, 2, v); },
         of(&ChannelRow::ChanOffs)},
        {"SetInputChannelEnable", "SetInputChannelEnable 0 2 {}", "", all(any),
         [](int32_t v) { return setInputChannelEnable(nullptr, 2, v); }, of(&ChannelRow::ChanEna)},
    };
    return table;
}

std::string limitWarning(const Setter &setter, const char *side, int32_t value, int32_t limit)
{
    return fmt::format("WRN Config: Value {} is {} of {} for {}!", value, side, limit, setter.Limits);
}

} // namespace

TEST(Settings, LimitedSentAndRemembered)
{
    for (const Setter &setter : setters())
        for (LibType family : fiveFamilies) {
            const auto range = setter.Ranges[static_cast<size_t>(family)];
            if (!range) continue;
            SCOPED_TRACE(setter.Sent + " " + libTypeText(family));
            const auto [least, most] = *range;
            Instrument instrument(family, setter.Mode);
            LogCapture log;
            std::vector<std::string> warnings;
            for (int64_t asked : {least - int64_t{2}, int64_t{least}, int64_t{most}, most + int64_t{1}}) {
                const auto value = static_cast<int32_t>(asked);
                if (value != asked) continue;
                const int32_t sent = std::clamp(value, least, most);
                setter.Field(instrument.device) = 777;
                EXPECT_TRUE(setter.Set(value)) << value;
                EXPECT_EQ(instrument.fake.newCalls(),
                          fmt::format(fmt::runtime(setter.Sent), sent) + setter.After);
                EXPECT_EQ(setter.Field(instrument.device), sent);
                if (sent != value && !setter.Limits.empty())
                    warnings.push_back(sent > value ? limitWarning(setter, "below minimum", value, least)
                                                    : limitWarning(setter, "above maximum", value, most));
            }
            setter.Field(instrument.device) = 777;
            instrument.fake->answer(setter.Sent.substr(0, setter.Sent.find(' ')).c_str(), 0, -7);
            EXPECT_FALSE(setter.Set(least));
            EXPECT_EQ(setter.Field(instrument.device), 777) << "what the library refused is remembered";
            EXPECT_EQ(linesOf(log, "WRN"), warnings);
        }
}

TEST(Settings, RefusedByFamilyTypeAndModel)
{
    const auto refusal = [](const Setter &setter, LibType family) {
        if (setter.Name == "SetTimingMode")
            return std::string("Config: SetTimingMode is not supported for model Sarvex 40 P @77");
        const bool isOffset = setter.Name == "SetInputChannelOffset";
        return fmt::format("{} is not supported for libType {} @77",
                           isOffset ? "Device: GetNumOfModules" : "Config: " + setter.Name,
                           libTypeText(family));
    };
    for (const Setter &setter : setters()) {
        SCOPED_TRACE(setter.Sent);
        Instrument instrument(ZP, setter.Mode);
        Device &device = instrument.device;
        for (LibType family : {ZP, CD, SV40, LM70, CD90, Dummy, Undefined}) {
            if (static_cast<size_t>(family) < 5 && setter.Ranges[static_cast<size_t>(family)]) continue;
            device.LibType = family;
            LogCapture log;
            EXPECT_FALSE(setter.Set(0));
            EXPECT_EQ(log.count("WRN " + refusal(setter, family)), 1u) << libTypeText(family);
        }
        device.LibType = ZP;
        device.DeviceType = DeviceType::File;
        EXPECT_TRUE(setter.Set(0));
        device.DeviceType = DeviceType::Remote;
        EXPECT_EQ(setter.Set(0), setter.Name == "SetInputEdgeTrig");
        EXPECT_EQ(instrument.fake.newCalls(), "");
    }
    Instrument sarvex(SV40);
    sarvex.device.Model = "Sarvex 40 N";
    LogCapture log;
    EXPECT_FALSE(setSyncCFD(nullptr, 0, 0));
    EXPECT_FALSE(setInputCFD(nullptr, 0, 0, 0));
    EXPECT_EQ(linesOf(log, "WRN"),
              (std::vector<std::string>{"WRN Config: SetSyncCFD is not supported for model Sarvex 40 N @77",
                                        "WRN Config: SetInputCFD is not supported for model Sarvex 40 N @77"}));
}

TEST(Settings, SilentWithoutFeatureOrInTheWrongMode)
{
    using enum MeasMode;
    const struct
    {
        const char *Name;
        uint32_t Features;
        MeasMode Mode;
        bool (*Call)();
        std::string Calls{};
    } cases[] = {
        {"dead time", ~Feature::ProgTd, T3, fixed<setSyncDeadTime, 900>},
        {"input dead time", ~Feature::ProgTd, T3, fixed<setInputDeadTime, 0, 900>},
        {"hysteresis", ~Feature::ProgHyst, T3, fixed<setInputHysteresis, 9>},
        {"trigger output", ~Feature::TrigOut, T3, fixed<setTriggerOutput, 1>},
        {"marker edges", ~Feature::Markers, T3, fixed<setMarkerEdges, 0, 0, 0, 0>},
        {"marker enable", ~Feature::Markers, T3, fixed<setMarkerEnable, 0, 0, 0, 0>},
        {"hold-off", ~Feature::Markers, T3, fixed<setMarkerHoldoffTime, -1>},
        {"input mode", ~Feature::InputMode, T3, fixed<setInputTrigMode, 0, 0>},
        {"marker edges, histograms", ~0u, Histogramming, fixed<setMarkerEdges, 0, 0, 0, 0>},
        {"marker enable, histograms", ~0u, Histogramming, fixed<setMarkerEnable, 0, 0, 0, 0>},
        {"hold-off, histograms", ~0u, Histogramming, fixed<setMarkerHoldoffTime, 1>},
        {"compression, histograms", ~0u, Histogramming, fixed<setOflCompression, 1>},
        {"offset, T2", ~0u, T2, fixed<setOffset, 1>},
        {"binning, T2", ~0u, T2, fixed<setBinning, 1>, "GetResolution 0"},
    };
    for (const auto &c : cases)
        for (LibType family : {ZP, CD90}) {
            Instrument instrument(family, c.Mode);
            instrument.device.Features = c.Features;
            LogCapture log;
            EXPECT_FALSE(c.Call()) << c.Name;
            EXPECT_EQ(instrument.fake.newCalls(), c.Calls) << c.Name;
            EXPECT_EQ(linesOf(log, "WRN"), std::vector<std::string>{}) << c.Name;
        }
}

TEST(Settings, DeadTimes)
{
    const struct
    {
        LibType Family;
        int32_t Asked;
        std::string Sync, Input; // as sent
        int32_t On, Remembered;
        bool IsAbove = false;
    } cases[] = {
        {ZP, 0, "0 800", "0 800", 0, 0},
        {ZP, 799, "0 800", "0 800", 0, 799},
        {LM70, 800, "1 800", "1 800", 1, 800},
        {CD90, 160000, "1 160000", "1 160000", 1, 160000},
        {CD90, 160001, "1 160000", "1 160000", 1, 160001, true}, // as asked for
        {SV40, INT32_MIN, "", "0", 1, 24000},
        {SV40, 34000, "", "0", 1, 24000}, // of two that are as near the earlier one
        {SV40, 34001, "", "1", 1, 44000},
        {SV40, 55000, "", "1", 1, 44000},
        {SV40, 170000, "", "6", 1, 160000},
        {SV40, 180001, "", "7", 1, 180000, true},
        {SV40, INT32_MAX, "", "7", 1, 180000, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", libTypeText(c.Family), c.Asked));
        Instrument instrument(c.Family);
        Device &device = instrument.device;
        ChannelRow &row = device.ChansCfg[1];
        LogCapture log;
        EXPECT_TRUE(setInputDeadTime(nullptr, 1, c.Asked));
        EXPECT_EQ(instrument.fake.newCalls(), "SetInputDeadTime 0 1 " + c.Input);
        EXPECT_EQ(row.DeadTimeOn, c.On);
        EXPECT_EQ(row.DeadTime, c.Remembered);
        EXPECT_EQ(setSyncDeadTime(nullptr, c.Asked), !c.Sync.empty());
        if (!c.Sync.empty()) {
            EXPECT_EQ(instrument.fake.newCalls(), "SetSyncDeadTime 0 " + c.Sync);
            EXPECT_EQ(device.SyncDeadTimeOn, c.On);
            EXPECT_EQ(device.SyncDeadTime, static_cast<uint32_t>(c.Remembered));
        }
        EXPECT_EQ(log.count("is above maximum of"), c.IsAbove ? 2u : 0u);
        EXPECT_EQ(log.count("is below"), 0u);
    }
}

TEST(Settings, StopOverflow)
{
    const struct
    {
        uint32_t Asked;
        int32_t Sequence;
        std::string Sent;
        uint32_t Remembered;
    } cases[] = {
        {0, 0, "0 1", 0}, {5, 1, "1 5", 5}, {4294967295, 0, "1 4294967295", 4294967295}, {5, 2, "1 5", 77}};
    for (LibType family : fiveFamilies)
        for (const auto &c : cases) {
            Instrument instrument(family);
            instrument.device.StopCount = 77;
            instrument.context.SequenceMode = c.Sequence;
            LogCapture log;
            EXPECT_TRUE(SetStopOverflow(instrument.device, instrument.context, c.Asked, true));
            EXPECT_EQ(instrument.fake.newCalls(), "SetStopOverflow 0 " + c.Sent);
            EXPECT_EQ(instrument.device.StopCount, c.Remembered);
            EXPECT_EQ(log.count("SetStopOverflow: 0 " + c.Sent + " @77"), c.Sequence == 2 ? 0u : 1u);
        }
    Instrument instrument(ZP);
    LogCapture log;
    EXPECT_TRUE(setStopOverflow(nullptr, 4000000000)); // the export leaves no trace
    EXPECT_EQ(instrument.fake.newCalls(), "SetStopOverflow 0 1 4000000000");
    instrument.device.LibType = Dummy;
    EXPECT_FALSE(setStopOverflow(nullptr, 5));
    EXPECT_EQ(log.count("WRN Config: Value 5 is above maximum of 1 for stopCount in SetStopOverflow!"), 1u);
    EXPECT_EQ(log.count("SetStopOverflow: 0"), 0u);
}

TEST(Settings, HistogramLengthByMode)
{
    const struct
    {
        LibType Family;
        MeasMode Mode;
        int32_t Asked;
        bool Answer;
        std::string Calls;
        int32_t LengthCode;
        uint64_t NumBins;
    } cases[] = {
        {LM70, MeasMode::Histogramming, -1, true, "SetHistoLen 0 9", 9, 2048},
        {SV40, MeasMode::Histogramming, -1, true, "SetHistoLen 0 5", 5, 32768},
        {LM70, MeasMode::T2, -1, false, "", 77, 65536},
        {CD, MeasMode::T2, 6, false, "", 77, 65536},
        {CD, MeasMode::T2, 3, false, "", 77, 8192},
        {CD, MeasMode::T2, -2, false, "", 77, 1024},
        {CD90, MeasMode::T3, 2, false, "", 77, 32768},
        {ZP, MeasMode::T3, 2, false, "", 5, 32768},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", libTypeText(c.Family), c.Asked));
        Instrument instrument(c.Family, c.Mode);
        Device &device = instrument.device;
        device.LengthCode = 77;
        device.NumBins = 5;
        EXPECT_EQ(setHistoLength(nullptr, c.Asked), c.Answer);
        EXPECT_EQ(instrument.fake.newCalls(), c.Calls);
        EXPECT_EQ(device.LengthCode, c.LengthCode);
        EXPECT_EQ(device.NumBins, c.NumBins);
        device.NumBins = 5;
        device.Index = -1;
        setHistoLength(nullptr, c.Asked);
        EXPECT_TRUE(c.Answer || device.NumBins == 5) << "without a port";
    }
}

TEST(Settings, MeasurementControl)
{
    const std::tuple<LibType, int32_t, std::optional<int32_t>> cases[] = {
        {ZP, 7, 6},  {ZP, -1, -1}, {CD, 3, 3},   {CD, 4, {}},   {CD, 6, {}},   {CD, 7, 4},   {CD, 8, 5},
        {CD, 10, 6}, {SV40, 4, 3}, {LM70, 3, 3}, {LM70, 4, {}}, {LM70, 5, {}}, {LM70, 7, 6}, {CD90, 7, 6},
    };
    for (const auto &[family, asked, sent] : cases) {
        Instrument instrument(family);
        Device &device = instrument.device;
        LogCapture log;
        EXPECT_EQ(setMeasControl(nullptr, asked, 1, 2), sent.has_value());
        EXPECT_EQ(instrument.fake.newCalls(), sent ? fmt::format("SetMeasControl 0 {} 1 2", *sent) : "");
        EXPECT_EQ(device.MeasControl, sent.value_or(0));
        EXPECT_EQ(device.StopEdge, sent ? 2 : 0);
        EXPECT_EQ(
            log.count(fmt::format("WRN Config: SetMeasControl is not supported for MeasControl={} @77", asked)),
            sent ? 0u : 1u);
    }
}

TEST(Settings, TriggerModeSendsItsLevelsAgain)
{
    const struct
    {
        LibType Family;
        int32_t Mode;
        std::string Sync, Input;
        bool Answer = true;
    } cases[] = {
        {LM70, 0, "SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -31 1",
         "SetInputTrgMode 0 1 0; SetInputEdgeTrg 0 1 -21 0"},
        {LM70, 1, "SetSyncTrgMode 0 1; SetSyncCFD 0 -32 -33", "SetInputTrgMode 0 1 1; SetInputCFD 0 1 -22 -23"},
        {CD90, 0, "SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -31 1",
         "SetInputTrgMode 0 1 0; SetInputEdgeTrg 0 1 -21 0"},
        {CD90, 1, "SetSyncTrgMode 0 1; SetSyncCFD 0 -32 -33", "SetInputTrgMode 0 1 1; SetInputCFD 0 1 -22 -23"},
        {CD90, 2, "SetSyncTrgMode 0 2", "SetInputTrgMode 0 1 2", false},
        {LM70, -5, "SetSyncTrgMode 0 -5", "SetInputTrgMode 0 1 -5", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", libTypeText(c.Family), c.Mode));
        Instrument instrument(c.Family);
        Device &device = instrument.device;
        device.SyncTrigLvl = -31, device.SyncTrigEdge = 1, device.SyncDiscrLvl = -32, device.SyncZeroxLvL = -33;
        ChannelRow &row = device.ChansCfg[1];
        row.TrigLvl = -21, row.TrigEdge = 0, row.DiscrLvl = -22, row.ZeroXLvl = -23;
        EXPECT_EQ(setSyncTrigMode(nullptr, c.Mode), c.Answer);
        EXPECT_EQ(instrument.fake.newCalls(), c.Sync);
        EXPECT_EQ(setInputTrigMode(nullptr, 1, c.Mode), c.Answer);
        EXPECT_EQ(instrument.fake.newCalls(), c.Input);
        EXPECT_EQ(device.SyncTrigMode, TrigMode{c.Mode});
        EXPECT_EQ(row.TrigMode, TrigMode{c.Mode});
        instrument.fake->answer("SetInputTrgMode", 0, -1);
        EXPECT_FALSE(setInputTrigMode(nullptr, 1, 1 - c.Mode));
        EXPECT_EQ(row.TrigMode, TrigMode{c.Mode});
    }
}

TEST(Settings, TracesThatDifferFromThePattern)
{
    Instrument sarvex(SV40, MeasMode::Histogramming);
    LogCapture log;
    setInputDeadTime(nullptr, 1, 50000);
    setHistoLength(nullptr, 3);
    EXPECT_EQ(linesOf(log, "DEV"),
              (std::vector<std::string>{"DEV SV40_SetInputDeadTime: 0 1 50000 1 (44000) @77",
                                        "DEV SV40_SetHistoLen: 0 3 8192 @77"}));
}

TEST(Settings, Channels)
{
    struct Case
    {
        LibType Family;
        const char *Operation;
        bool (*Set)(int32_t channel);
        std::string Refusal; // of channel 4
    };
    const Case cases[] = {
        {LM70, "SetInputTrgMode", [](int32_t c) { return setInputTrigMode(nullptr, c, 0); },
         "Invalid channel index 77 @ API setInputTrigMode"},
        {ZP, "SetInputEdgeTrg", [](int32_t c) { return setInputEdgeTrig(nullptr, c, 0, 0); },
         "Invalid channel index 77 @ API setInputEdgeTrig"},
        {CD, "SetInputCFD", [](int32_t c) { return setInputCFD(nullptr, c, 0, 0); },
         "Invalid channel index 4 @ API setInputCFD @77"},
        {CD90, "SetInputChannelOffset", [](int32_t c) { return setInputChannelOffset(nullptr, c, 0); },
         "Invalid channel index 4 @ API setInputChannelOffset @77"},
        {SV40, "SetInputChannelEnable", [](int32_t c) { return setInputChannelEnable(nullptr, c, 0); },
         "Invalid channel index 4 @ API setInputChannelEnable @77"},
        {ZP, "SetInputDeadTime", [](int32_t c) { return setInputDeadTime(nullptr, c, 0); },
         "Invalid channel index {} @ API setInputDeadTime"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Operation);
        Instrument instrument(c.Family);
        Fake &fake = instrument.fake;
        const auto calls = [&] {
            const auto journal = fake.journal();
            return std::ranges::count_if(journal, [&](auto &line) { return line.starts_with(c.Operation); });
        };
        LogCapture log;
        EXPECT_TRUE(c.Set(-1));
        EXPECT_EQ(calls(), 4) << "one for each input";
        fake->answer(c.Operation, 2, -1);
        EXPECT_FALSE(c.Set(-1));
        EXPECT_EQ(calls(), 6) << "up to the first that refuses";
        for (int32_t channel : {4, -2, INT32_MAX, INT32_MIN}) EXPECT_FALSE(c.Set(channel));
        instrument.device.ChansCfg.clear();
        EXPECT_FALSE(c.Set(-1)) << "no inputs";
        EXPECT_EQ(calls(), 6);
        EXPECT_EQ(std::ranges::count(log.lines(), "WRN " + c.Refusal),
                  c.Refusal.find('4') == std::string::npos ? 4 : 1);
    }
}
