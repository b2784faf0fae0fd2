// What a run asks of an instrument, and what an instrument says of itself, against fake libraries: texts, units
// and what the families do differently.
#include "devices/primitives.h"

#include "devices/debug_info.h"
#include "devices/identity.h"
#include "devices/lifecycle.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "support/instrument.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

using namespace Tessel;
using namespace TestSupport;

namespace {

struct Asked
{
    const char *name; // in the refusal of a family that is none
    std::function<bool(Device &, MeasContext &)> ask;
    bool ofFile; // what a recorded file answers
};

const std::vector<Asked> &askable()
{
    static int32_t number = 0;
    static double real = 0;
    static const std::vector<Asked> rows = {
        {"StartMeasure", [](Device &d, MeasContext &) { return StartMeasure(d, 5, true); }, true},
        {"StopMeasure", [](Device &d, MeasContext &) { return StopMeasure(d, true); }, true},
        {"getFlags", [](Device &d, MeasContext &) { return getFlags(d, number, true); }, true},
        {"getCtcStatus", [](Device &d, MeasContext &) { return getCtcStatus(d, number, true); }, true},
        {"getElapsedMeasTime", [](Device &d, MeasContext &) { return getElapsedMeasTime(d, real); }, true},
        {"getElapsedMeasTime", [](Device &d, MeasContext &c) { return GetStartTime(d, c); }, true},
        {"getSyncPeriod", [](Device &d, MeasContext &c) { return getSyncPeriod(d, c, real); }, true},
        {"getSyncRate", [](Device &d, MeasContext &c) { return getSyncRate(d, c, number); }, true},
        {"getCountRates", [](Device &d, MeasContext &c) { return readCountRates(d, c); }, false},
        {"GetWarnings", [](Device &d, MeasContext &c) { return GetWarnings(d, c); }, true},
        {"ClearHistMem",
         [](Device &d, MeasContext &) {
             d.MeasMode = MeasMode::Histogramming;
             return clearHistMem(d, true);
         },
         true},
        {"GetFeatures", [](Device &d, MeasContext &) { return GetFeatures(d); }, false},
        {"GetFeatures", [](Device &d, MeasContext &) { return GetSyncFeatures(d); }, false},
        {"GetFeatures", [](Device &d, MeasContext &) { return GetInputFeatures(d, d.ChansCfg[0]); }, false},
        {"GetModules", [](Device &d, MeasContext &) { return GetModules(d); }, false},
        {"GetNumOfInputChannels", [](Device &d, MeasContext &) { return GetNumOfInputChannels(d); }, false},
        {"GetResolution", [](Device &d, MeasContext &) { return GetResolution(d); }, false},
        {"GetBaseResolution", [](Device &d, MeasContext &c) { return GetBaseResolution(d, c); }, false},
        {"Initialize", [](Device &d, MeasContext &) { return Initialize(d); }, false},
    };
    return rows;
}

} // namespace

TEST(Primitives, OfNoFamilyOfAFileAndOfARemoteDevice)
{
    for (const auto &[name, ask, ofFile] : askable()) {
        SCOPED_TRACE(name);
        Instrument instrument(LibType::ZP);
        instrument.device.LibType = LibType::Dummy;
        LogCapture log;
        EXPECT_FALSE(ask(instrument.device, instrument.context));
        instrument.device.DeviceType = DeviceType::File;
        EXPECT_EQ(ask(instrument.device, instrument.context), ofFile);
        instrument.device.DeviceType = DeviceType::Remote;
        EXPECT_EQ(ask(instrument.device, instrument.context),
                  std::string(name) == "GetWarnings" || std::string(name) == "StartMeasure");
        EXPECT_EQ(instrument.fake.newCalls(), "");
        EXPECT_EQ(log.count(fmt::format("WRN Config: {} is not supported for libType dummy @77", name)), 1u);
        EXPECT_EQ(log.count("ERR "), 0u);
    }
}

TEST(Primitives, FamiliesReadHistogramsAndRatesInTheirWay)
{
    const struct
    {
        LibType family;
        std::string calls;
    } rows[] = {
        {LibType::ZP, "GetAllHistograms 0; ClearHistMem 0; GetAllCountRates 0"},
        {LibType::CD,
         "GetHistogram 0 0 1; GetHistogram 0 1 1; GetHistogram 0 2 1; GetHistogram 0 3 1; GetSyncRate 0; "
         "GetCountRate 0 0; GetCountRate 0 1; GetCountRate 0 2; GetCountRate 0 3"},
        {LibType::SV40,
         "GetHistogram 0 0 1; GetHistogram 0 1 1; GetHistogram 0 2 1; GetHistogram 0 3 1; GetSyncRate "
         "0; GetCountRate 0 0; GetCountRate 0 1; GetCountRate 0 2; GetCountRate 0 3"},
        {LibType::LM70, "GetAllHistograms 0; ClearHistMem 0; GetAllCountRates 0"},
        {LibType::CD90, "GetAllHistograms 0; ClearHistMem 0; GetAllCountRates 0"},
    };
    for (const auto &[family, calls] : rows) {
        Instrument instrument(family, MeasMode::Histogramming);
        instrument.device.NumBins = 16;
        std::vector<uint32_t> counts(5 * 16);
        LogCapture log;
        EXPECT_TRUE(getHistograms(instrument.device, counts, true, false));
        EXPECT_TRUE(readCountRates(instrument.device, instrument.context));
        EXPECT_EQ(instrument.fake.newCalls(), calls);
        EXPECT_EQ(instrument.context.CountRates[3], 1000);
        EXPECT_EQ(log.count("DEB Dev 0: SyncRate: 80000000, CntRates:  1000 1000 1000 1000 (80004000)"), 1u);
        EXPECT_FALSE(getHistograms(instrument.device, std::span(counts).first(5 * 16 - 1), false, false));
    }
}

// The start is a time in ps with 96 bits, kept in units of 100 ns.
TEST(Primitives, StartTime)
{
    Instrument instrument(LibType::CD90);
    const struct
    {
        double high, middle, low;
        int64_t start;
    } rows[] = {{0, 0, 99'999, 0},
                {0, 0, 250'000, 2},
                {0, 100, 0, 4'294'967},
                {1, 0, 0, 184'467'440'737'095},
                {500, 0, 0, -92'233'720'368'547'758}};
    for (const auto &[high, middle, low, start] : rows) {
        instrument.fake->number("GetStartTime", 0, high);
        instrument.fake->number("GetStartTime", 1, middle);
        instrument.fake->number("GetStartTime", 2, low);
        EXPECT_TRUE(GetStartTime(instrument.device, instrument.context));
        EXPECT_EQ(instrument.context.Description.StartTime, start);
        EXPECT_EQ(instrument.context.Description.StartWords[2], static_cast<uint32_t>(high));
    }
}

TEST(Primitives, LinesOfTheDevice)
{
    Instrument instrument(LibType::CD);
    Device &device = instrument.device;
    LogCapture log;
    int32_t flags = 0, status = 0;
    for (int32_t word : {0, 32, 33}) {
        instrument.fake->number("GetFlags", 0, word);
        EXPECT_TRUE(getFlags(device, flags, true));
        EXPECT_EQ(flags, word);
    }
    for (int32_t now : {0, 1, 1}) {
        instrument.fake->number("CTCStatus", 0, now);
        EXPECT_TRUE(getCtcStatus(device, status, true));
    }
    instrument.fake->number("GetBaseResolution", 0, 2.5);
    EXPECT_TRUE(GetBaseResolution(device, instrument.context));
    EXPECT_EQ(device.SyncPeriodPs, 3);
    EXPECT_TRUE(GetModules(device));
    EXPECT_TRUE(StartMeasure(device, 1500, true));
    instrument.fake->number("GetFeatures", 0, 3);
    EXPECT_TRUE(GetFeatures(device));
    instrument.fake->number("GetWarnings", 0, 6);
    EXPECT_TRUE(GetWarnings(device, instrument.context));
    EXPECT_EQ(instrument.context.Description.WarningsFlag, 6);
    instrument.fake->text("GetHardwareDebugInfo", 0, "one\ntwo");
    instrument.fake->answer("StopMeas", 0, -5);
    EXPECT_FALSE(StopMeasure(device, false));
    EXPECT_EQ(linesOf(log, "DEV CD_GetFlags"), std::vector<std::string>{"DEV CD_GetFlags: 0 0x00000021 @77"});
    EXPECT_EQ(linesOf(log, "DEV CD_CTC"), std::vector<std::string>{"DEV CD_CTCStatus: 0 0x00000001 @77"});
    for (const char *line :
         {"DEV CD_GetBaseResolution: 2.5 24 @77", "DEV CD90_GetModuleInfo: 1 11 0102_0304 @77",
          "DEV CD_GetNumOfModules: 2 @77", "DEV CD_StartMeas: 0 1500 @77", "DEV CD_GetFeature: 0x0 @77",
          "DEV Features: DLL TTTR ", "WRN Device: warned @77",
          "ERR Device: CDlib error in CD_StopMeas @77 (-5): as told @77"})
        EXPECT_EQ(log.count(line), 1u) << line;
    EXPECT_EQ(log.count("Debug Info:"), 1u);
}

TEST(Primitives, TriggersThatFamiliesOffer)
{
    const struct
    {
        LibType family;
        const char *model;
        uint32_t features;
        TrigMode mode; // of a row that had Edge
    } rows[] = {
        {LibType::ZP, "", 1, TrigMode::Edge},
        {LibType::CD, "", 2, TrigMode::CFD},
        {LibType::SV40, "Sarvex 40 P", 2, TrigMode::CFD},
        {LibType::SV40, "Sarvex 40 N", 1, TrigMode::Edge},
        {LibType::SV40, "Sarvex 40 X", 1, TrigMode::Edge},
        {LibType::LM70, "", 3, TrigMode::Edge},
        {LibType::CD90, "", 3, TrigMode::Edge},
    };
    for (const auto &[family, model, features, mode] : rows) {
        SCOPED_TRACE(libTypeText(family) + model);
        Instrument instrument(family);
        Device &device = instrument.device;
        device.Model = model;
        EXPECT_TRUE(GetSyncFeatures(device) && GetInputFeatures(device, device.ChansCfg[2]));
        EXPECT_EQ(device.SyncTrigFeature, features);
        EXPECT_EQ(device.SyncTrigMode, mode);
        EXPECT_EQ(device.ChansCfg[2].TrigFeature, features);
        EXPECT_EQ(device.ChansCfg[2].TrigMode, mode);
        ChannelRow all;
        all.Index = -1;
        EXPECT_FALSE(GetInputFeatures(device, all));
        instrument.fake->number("GetFeatures", 0, 0);
        EXPECT_TRUE(GetFeatures(device));
        EXPECT_EQ(device.Features, family == LibType::LM70 || family == LibType::CD90 ? 16u : 0u);
    }
}
