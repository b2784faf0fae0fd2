#include "devices/families.h"

#include "devices/enum_texts.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

namespace {

DeviceConfig deviceOf(LibType family, std::string_view model = {}, int32_t refSource = 0)
{
    DeviceConfig config;
    config.LibType = family;
    config.Model = model;
    config.RefSource = refSource;
    config.ID = "77";
    return config;
}

} // namespace

TEST(Families, RecordTypes)
{
    struct Case
    {
        LibType Family;
        std::string_view Model;
        uint32_t T2, T3;
        uint64_t Warnings = 0;
    };
    const Case cases[] = {
        {ZP, "", 0x00010207, 0x00010307},
        {CD, "", 0x01010204, 0x01010304},
        {SV40, "Sarvex 40 N", 0x00010205, 0x00010205},
        {SV40, "Sarvex 40 P", 0x00010206, 0x00010206},
        {SV40, "Sarvex 40", 0, 0},
        {Dummy, "", 0, 0, 2},
    };
    for (const Case &c : cases) {
        DeviceConfig config = deviceOf(c.Family, c.Model);
        LogCapture log;
        for (auto [mode, type] :
             {std::pair(MeasMode::T2, c.T2), {MeasMode::T3, c.T3}, {MeasMode::Histogramming, 0u}}) {
            config.MeasMode = mode;
            EXPECT_EQ(recordTypeOf(config), type) << libTypeText(c.Family) << " " << c.Model;
        }
        EXPECT_EQ(log.count("WRN Undefined MV_TAGID_TTRESULTFORMAT_TTTRRECTYPE for libType dummy"), c.Warnings);
    }
}

TEST(Families, ReferenceClock)
{
    const std::tuple<LibType, int32_t, int32_t, std::string> cases[] = {
        {ZP, 10, 9, ""},
        {CD, 2, 1, ""},
        {SV40, 1, 0, ""},
        {LM70, 1, 1, ""},
        {LM70, 2, 0, "Initialize is not supported for RefSource 2 @77"},
        {LM70, 10, 2, ""},
        {CD90, 10, 9, ""},
        {Undefined, 1, 0, "getRefsource is not supported for libType undefined @77"},
    };
    for (const auto &[family, source, code, warning] : cases) {
        LogCapture log;
        EXPECT_EQ(refSourceCode(deviceOf(family, "", source)), code) << libTypeText(family) << source;
        EXPECT_EQ(log.count("WRN Config: " + warning), warning.empty() ? 0u : 1u);
    }
}

TEST(Families, ByTheBeginningOfTheModel)
{
    const std::pair<const char *, std::optional<LibType>> cases[] = {
        {"Zephyrion 260", ZP}, {"Cordalis", CD},   {"Cordalis 90", CD},
        {"Lumora 70", LM70},   {"Sarvex40", SV40}, {"Sarvex 40 P", SV40},
        {"Lumora 7", {}},      {"zephyrion", {}},  {"", {}},
    };
    for (const auto &[model, family] : cases) EXPECT_EQ(familyOfModel(model), family) << model;
    for (LibType family : {ZP, CD, SV40, LM70})
        EXPECT_EQ(familyOfModel(familyOf(family).Model), family)
            << "a recording comes back as what it was made";
}

TEST(Families, StopBySoftware)
{
    for (LibType family : {LM70, CD90}) EXPECT_TRUE(stopsBySoftware(deviceOf(family)));
    for (LibType family : {CD, SV40, Undefined}) EXPECT_FALSE(stopsBySoftware(deviceOf(family)));
    EXPECT_TRUE(stopsBySoftware(deviceOf(ZP, "Zephyrion 260 P")));
    EXPECT_FALSE(stopsBySoftware(deviceOf(ZP, "Zephyrion 260 N")));
}
