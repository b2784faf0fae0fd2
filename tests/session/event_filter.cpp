// The exports of the event filter against fake libraries.
#include "support/instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

namespace {

template <auto operation, auto... arguments>
bool call()
{
    return operation(nullptr, arguments...);
}

} // namespace

TEST(EventFilter, ReachesTheLibrary)
{
    constexpr auto T2 = MeasMode::T2, T3 = MeasMode::T3;
    const struct
    {
        LibType Family;
        MeasMode Mode;
        bool (*Call)();
        std::string Sent, Warning{};
    } cases[] = {
        {ZP, T3, call<enableMainEventFilter, 1>, "EnableMainEventFilter 0 1"},
        {LM70, T3, call<enableMainEventFilter, 1>, "EnableEventFilter 0 1"},
        {CD90, T3, call<enableMainEventFilter, 0>, "EnableMainEventFilter 0 0"},
        {ZP, T3, call<setMainEventFilterChannels, 9, 0xFFFF, 0x123>, "SetMainEventFilterChannels 0 7 511 291"},
        {CD90, T3, call<setMainEventFilterChannels, -1, 1, 0xF2FF>, "SetMainEventFilterChannels 0 0 1 255"},
        {LM70, T3, call<setMainEventFilterChannels, 0, 0x1FF, 0x3FF>, "SetEventFilterChannels 0 255 255"},
        {LM70, T2, call<setMainEventFilterChannels, 0, 0x1FF, 0x3FF>, "SetEventFilterChannels 0 511 511"},
        {ZP, T3, call<setMainEventFilterParams, 160000, 6, 1>, "SetMainEventFilterParams 0 160000 6 1"},
        {ZP, T3, call<setMainEventFilterParams, 160001, 1, 0>, "SetMainEventFilterParams 0 160000 1 0",
         "Value 160001 is above maximum of 160000 for HWFilter TimeRange in SetMainEventFilterParams!"},
        {LM70, T3, call<setMainEventFilterParams, 40000, 0, 0>, "SetEventFilterParams 0 40000 1 0",
         "Value 0 is below minimum of 1 for HWFilter MatchCnt in SetMainEventFilterParams!"},
        {CD90, T3, call<setMainEventFilterParams, 40000, 1, 0>, "SetMainEventFilterParams 0 32000 1 0",
         "Value 40000 is above maximum of 32000 for HWFilter TimeRange in SetMainEventFilterParams!"},
        {ZP, T3, call<enableRowEventFilter, -1, 1>, "EnableRowEventFilter 0 0 1"},
        {CD90, T3, call<enableRowEventFilter, 9, 1>, "EnableGroupEventFilter 0 7 1"},
        {LM70, T3, call<enableRowEventFilter, 0, 1>, "",
         "EnableRowEventFilter is not supported for libType LM70 @77"},
        {ZP, T3, call<setRowEventFilter, 3, -1, 6, 1, 0x1FF, 2>, "SetRowEventFilter 0 3 0 6 1 255 2",
         "Value -1 is below minimum of 0 for HWFilter TimeRange in SetRowEventFilter!"},
        {CD90, T3, call<setRowEventFilter, 8, 32000, 7, 0, 0, 0x1FF>, "SetGroupEventFilter 0 7 32000 6 0 0 255",
         "Value 7 is above maximum of 6 for HWFilter MatchCnt in SetRowEventFilter!"},
        {ZP, T3, call<setFilterTestMode, 1>, "SetFilterTestMode 0 1"},
        {LM70, T3, call<setFilterTestMode, 1>, "SetFilterTestMode 0 1"},
        {CD90, T3, call<setFilterTestMode, 0>, "SetFilterTestMode 0 0"},
        {ZP, T3, call<getMainFilteredRates, nullptr, nullptr>, "GetMainFilteredRates 0"},
        {LM70, T3, call<getMainFilteredRates, nullptr, nullptr>, "GetFilterOutputRates 0"},
        {CD90, T3, call<getMainFilteredRates, nullptr, nullptr>, "GetMainFilteredRates 0"},
        {ZP, T3, call<getRowFilteredRates, nullptr, nullptr>, "GetRowFilteredRates 0"},
        {LM70, T3, call<getRowFilteredRates, nullptr, nullptr>, "GetFilterInputRates 0"},
        {CD90, T3, call<getRowFilteredRates, nullptr, nullptr>, "GetGroupFilteredRates 0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(libTypeText(c.Family) + " " + c.Sent);
        Instrument instrument(c.Family, c.Mode);
        LogCapture log;
        EXPECT_EQ(c.Call(), !c.Sent.empty());
        EXPECT_EQ(instrument.fake.newCalls(), c.Sent);
        const std::vector<std::string> warnings(c.Warning.empty() ? 0 : 1, "WRN Config: " + c.Warning);
        EXPECT_EQ(linesOf(log, "WRN"), warnings);
    }
}

TEST(EventFilter, RefusedByFamilyFeatureAndType)
{
    const std::pair<std::string, bool (*)()> cases[] = {
        {"EnableMainEventFilter", call<enableMainEventFilter, 1>},
        {"SetMainEventFilterChannels", call<setMainEventFilterChannels, 0, 1, 1>},
        {"SetMainEventFilterParams", call<setMainEventFilterParams, 0, 0, 0>},
        {"EnableRowEventFilter", call<enableRowEventFilter, 0, 1>},
        {"SetRowEventFilter", call<setRowEventFilter, 0, 0, 0, 0, 1, 1>},
        {"SetFilterTestMode", call<setFilterTestMode, 1>},
        {"GetMainFilteredRates", call<getMainFilteredRates, nullptr, nullptr>},
        {"GetRowFilteredRates", call<getRowFilteredRates, nullptr, nullptr>}};
    for (const auto &[name, refused] : cases) {
        Instrument instrument(CD);
        Device &device = instrument.device;
        for (LibType family : {CD, SV40, Dummy}) {
            LogCapture log;
            device.LibType = family;
            EXPECT_FALSE(refused());
            EXPECT_EQ(linesOf(log, "WRN"),
                      std::vector<std::string>{fmt::format("WRN Config: {} is not supported for libType {} @77",
                                                           name, libTypeText(family))});
        }
        LogCapture log;
        device.LibType = ZP;
        device.Features = ~Feature::EvntFilt;
        EXPECT_FALSE(refused()) << name;
        device.DeviceType = DeviceType::Remote;
        EXPECT_FALSE(refused()) << name;
        device.DeviceType = DeviceType::File;
        EXPECT_TRUE(refused()) << name;
        EXPECT_EQ(instrument.fake.newCalls(), "");
        EXPECT_EQ(log.lines().size(), linesOf(log, "INF").size()) << "refused without a word";
    }
}

TEST(EventFilter, RemembersWhatTheLibraryTook)
{
    Instrument instrument(CD90);
    const MainFilter &filter = instrument.context.Filter;
    for (bool refused : {false, true}) { // the second time other values, which leave those of the first
        if (refused)
            for (const char *each :
                 {"EnableMainEventFilter", "SetMainEventFilterParams", "SetMainEventFilterChannels"})
                instrument.fake->answer(each, 0, -7);
        EXPECT_NE(enableMainEventFilter(nullptr, !refused), refused);
        EXPECT_NE(setMainEventFilterParams(nullptr, refused ? 5 : 40000, refused ? 5 : 9, !refused), refused);
        EXPECT_NE(setMainEventFilterChannels(nullptr, 0, refused ? 0 : 0x1FF, refused ? 0 : 0x13), refused);
        EXPECT_EQ(filter.FilterEnabled, 1);
        EXPECT_EQ(filter.FilterTimeRange, 32000);
        EXPECT_EQ(filter.FilterMatchCnt, 6);
        EXPECT_EQ(filter.FilterInverse, 1);
        EXPECT_EQ(filter.FilterMask1, 0x1FFu);
        EXPECT_EQ(filter.FilterMask2, 0x13u);
    }
}

TEST(EventFilter, MasksOnlyLoseBits)
{
    const std::tuple<int32_t, uint32_t, uint32_t, uint32_t> cases[] = {
        {0, 8, 0x1FF, 0x1FF}, {1, 8, 0x1FF, 0x1FF00}, {3, 8, 0x1FF, 0xFF000000},
        {4, 8, 0x1FF, 0},     {2, 16, 0x1FF, 0},      {7, 4000000000, 1, 0},
    };
    for (const auto &[row, width, mask, left] : cases) {
        Instrument instrument(ZP);
        instrument.device.HwFilteRowWidth = width;
        const MainFilter &filter = instrument.context.Filter;
        EXPECT_TRUE(setMainEventFilterChannels(nullptr, row, mask, mask));
        EXPECT_EQ(filter.FilterMask1, left) << row << " " << width;
        setMainEventFilterChannels(nullptr, row, 1, 1);
        setMainEventFilterChannels(nullptr, row, mask, mask);
        EXPECT_EQ(filter.FilterMask2 & ~left, 0u) << "a bit came back";
        EXPECT_LE(std::popcount(filter.FilterMask2), 1);
    }
}

TEST(EventFilter, RatesAreBoundedAndNeverNegative)
{
    for (LibType family : {ZP, LM70, CD90})
        for (bool ofRows : {false, true}) {
            Instrument instrument(family);
            instrument.device.ChansCfg.resize(2); // fewer than the library writes
            const char *name = family == LM70 ? (ofRows ? "GetFilterInputRates" : "GetFilterOutputRates")
                               : !ofRows      ? "GetMainFilteredRates"
                               : family == ZP ? "GetRowFilteredRates"
                                              : "GetGroupFilteredRates";
            const auto read = [&](int32_t *sync, int32_t *rates) {
                return (ofRows ? getRowFilteredRates : getMainFilteredRates)(nullptr, sync, rates);
            };
            LogCapture log;
            int32_t sync = -7, rates[3] = {-7, -7, -7};
            instrument.fake->answer(name, 1, -3);
            EXPECT_FALSE(read(&sync, rates));
            EXPECT_EQ(sync + rates[0] + rates[1], -21) << "unchanged";
            EXPECT_TRUE(read(&sync, rates));
            EXPECT_EQ(sync, 80000000);
            EXPECT_EQ((std::vector(rates, rates + 3)), (std::vector{1000, 1000, -7}));
            EXPECT_TRUE(read(nullptr, nullptr));
            instrument.fake->number(name, 0, -1);
            instrument.fake->number(name, 1, INT32_MIN);
            EXPECT_TRUE(read(&sync, rates));
            EXPECT_EQ(sync, 0);
            EXPECT_EQ((std::vector(rates, rates + 3)), (std::vector{0, 0, -7}));
            EXPECT_EQ(linesOf(log, "WRN").size(), 1u);
            EXPECT_EQ(log.count(fmt::format("DEV {}_{}: 0 80000000 1000 1000 @77", libTypeText(family), name)),
                      2u);
        }
}

TEST(EventFilter, TracesMasksInHexadecimal)
{
    Instrument instrument(LM70);
    LogCapture log;
    setMainEventFilterChannels(nullptr, 9, 0xAB, 0x1C);
    EXPECT_EQ(
        linesOf(log, "DEV"),
        std::vector<std::string>{"DEV LM70_SetEventFilterChannels: 0 7 AB 1C @77"}); // of a family without rows
}
