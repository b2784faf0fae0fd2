// The parameter and filter exports: which operation each one calls, with which arguments, and how channels are
// found.
#include "session/current_instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

TEST(ParameterExports, CallTheirOperation)
{
    const char16_t *id = u"77";
    using Set = bool (*)(const char16_t *);
    const std::tuple<LibType, Set, std::string> cases[] = {
        {ZP, [](auto i) { return setSyncDiv(i, 2); }, "SetSyncDiv 0 2"},
        {LM70, [](auto i) { return setSyncTrigMode(i, 0); }, "SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -40 0"},
        {ZP, [](auto i) { return setSyncEdgeTrig(i, -5, 1); }, "SetSyncEdgeTrg 0 -5 1"},
        {CD, [](auto i) { return setSyncCFD(i, 5, 6); }, "SetSyncCFD 0 5 6"},
        {ZP, [](auto i) { return setSyncChannelOffset(i, 7); }, "SetSyncChannelOffset 0 7"},
        {ZP, [](auto i) { return setSyncChannelEnable(i, 0); }, "SetSyncChannelEnable 0 0"},
        {ZP, [](auto i) { return setSyncDeadTime(i, 900); }, "SetSyncDeadTime 0 1 900"},
        {ZP, [](auto i) { return setInputHysteresis(i, 1); }, "SetInputHysteresis 0 1"},
        {SV40, [](auto i) { return setTimingMode(i, 1); }, "SetTimingMode 0 1"},
        {ZP, [](auto i) { return setStopOverflow(i, 4000000000); }, "SetStopOverflow 0 1 4000000000"},
        {ZP, [](auto i) { return setBinning(i, 3); }, "SetBinning 0 3; GetResolution 0"},
        {ZP, [](auto i) { return setOffset(i, 8); }, "SetOffset 0 8"},
        {ZP, [](auto i) { return !setHistoLength(i, 8); }, ""}, // T3
        {ZP, [](auto i) { return setMeasControl(i, 1, 2, 3); }, "SetMeasControl 0 1 2 3"},
        {ZP, [](auto i) { return setTriggerOutput(i, 9); }, "SetTriggerOutput 0 9"},
        {ZP, [](auto i) { return setMarkerEdges(i, 1, 0, 0, 1); }, "SetMarkerEdges 0 1 0 0 1"},
        {ZP, [](auto i) { return setMarkerEnable(i, 0, 1, 1, 1); }, "SetMarkerEnable 0 0 1 1 1"},
        {ZP, [](auto i) { return setMarkerHoldoffTime(i, 10); }, "SetMarkerHoldoffTime 0 10"},
        {ZP, [](auto i) { return setOflCompression(i, 11); }, "SetOflCompression 0 11"},
        {LM70, [](auto i) { return setInputTrigMode(i, 2, 1); }, "SetInputTrgMode 0 2 1; SetInputCFD 0 2 0 0"},
        {ZP, [](auto i) { return setInputEdgeTrig(i, 3, -5, 1); }, "SetInputEdgeTrg 0 3 -5 1"},
        {CD, [](auto i) { return setInputCFD(i, 0, 5, 6); }, "SetInputCFD 0 0 5 6"},
        {ZP, [](auto i) { return setInputChannelOffset(i, 1, 5); }, "SetInputChannelOffset 0 1 5"},
        {ZP, [](auto i) { return setInputChannelEnable(i, 1, 0); }, "SetInputChannelEnable 0 1 0"},
        {ZP, [](auto i) { return setInputDeadTime(i, 1, 900); }, "SetInputDeadTime 0 1 1 900"},
        {ZP, [](auto i) { return enableMainEventFilter(i, 1); }, "EnableMainEventFilter 0 1"},
        {ZP, [](auto i) { return setMainEventFilterChannels(i, 1, 2, 3); },
         "SetMainEventFilterChannels 0 1 2 3"},
        {ZP, [](auto i) { return setMainEventFilterParams(i, 1, 2, 3); }, "SetMainEventFilterParams 0 1 2 3"},
        {ZP, [](auto i) { return enableRowEventFilter(i, 1, 1); }, "EnableRowEventFilter 0 1 1"},
        {ZP, [](auto i) { return setRowEventFilter(i, 1, 2, 3, 4, 5, 6); }, "SetRowEventFilter 0 1 2 3 4 5 6"},
        {ZP, [](auto i) { return setFilterTestMode(i, 1); }, "SetFilterTestMode 0 1"},
        {ZP, [](auto i) { return getMainFilteredRates(i, nullptr, nullptr); }, "GetMainFilteredRates 0"},
        {ZP, [](auto i) { return getRowFilteredRates(i, nullptr, nullptr); }, "GetRowFilteredRates 0"},
    };
    for (const auto &[family, set, calls] : cases) {
        Current current(family);
        makeCurrent(noDevice());
        EXPECT_FALSE(set(u"nobody") && !calls.empty());
        EXPECT_TRUE(set(id)) << calls;
        EXPECT_EQ(current.instrument.fake.newCalls(), calls);
        EXPECT_EQ(currentDevice(), current.instrument.entry);
    }
}

TEST(ParameterExports, Channels)
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
        Current current(c.Family);
        Fake &fake = current.instrument.fake;
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
        current.instrument.device.ChansCfg.clear();
        EXPECT_FALSE(c.Set(-1)) << "no inputs";
        EXPECT_EQ(calls(), 6);
        EXPECT_EQ(std::ranges::count(log.lines(), "WRN " + c.Refusal),
                  c.Refusal.find('4') == std::string::npos ? 4 : 1);
    }
}
