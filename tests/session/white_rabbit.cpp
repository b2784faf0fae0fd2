// The White Rabbit exports against fake libraries.
#include "support/instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

using namespace Tessel;
using namespace TestSupport;
using enum LibType;

namespace {

std::string longText(char end)
{
    return std::string(65536, end);
}

} // namespace

TEST(WhiteRabbit, TextsAndNumbers)
{
    for (LibType family : {ZP, CD90}) {
        Instrument instrument(family);
        Fake &fake = instrument.fake;
        char mac[19] = "junkjunkjunkjunk~~";
        EXPECT_TRUE(WRabbitGetMAC(nullptr, mac));
        EXPECT_EQ(std::string(mac, 19), std::string("00-1a-2b-3c-4d-5e\0", 19)) << "18 bytes";
        for (const char *text : {"00-1A-2B-3C-4D-5E", "001a2b3c4d5e", "0-0-1A-2B3C4D5EFF"}) {
            fake.newCalls();
            EXPECT_TRUE(WRabbitSetMAC(nullptr, text));
            EXPECT_EQ(fake.newCalls(), "WRabbitSetMAC 0 [0 26 43 60 77 94]") << text;
        }
        std::string room = longText('~');
        EXPECT_TRUE(WRabbitGetInitScript(nullptr, room.data()));
        EXPECT_STREQ(room.c_str(), "boot");
        EXPECT_TRUE(WRabbitGetTermOutput(nullptr, room.data()));
        EXPECT_STREQ(room.c_str(), "wrc# ");
        uint64_t seconds = 0;
        uint32_t part = 0;
        int32_t status = 0;
        EXPECT_TRUE(WRabbitGetTime(nullptr, &seconds, &part));
        EXPECT_EQ(seconds, 0x100000002u);
        EXPECT_EQ(part, 3u);
        EXPECT_TRUE(WRabbitGetStatus(nullptr, &status));
        EXPECT_EQ(status, 5);
        fake.newCalls();
        EXPECT_TRUE(WRabbitSetInitScript(nullptr, "a b"));
        EXPECT_TRUE(WRabbitInitLink(nullptr, 1));
        EXPECT_TRUE(WRabbitSetMode(nullptr, 1, 2, 3));
        EXPECT_TRUE(WRabbitSetTime(nullptr, 4294967296));
        EXPECT_EQ(fake.newCalls(),
                  "WRabbitSetInitScript 0 \"a b\"; WRabbitInitLink 0 1; WRabbitSetMode 0 1 2 3; "
                  "WRabbitSetTime 0 1 0");
    }
}

TEST(WhiteRabbit, SfpData)
{
    Instrument instrument(ZP);
    Fake &fake = instrument.fake;
    int32_t a[] = {1, 2, 3, 4}, b[] = {5, 6, 7, 8}, c[] = {9, 10, 11, 12};
    EXPECT_TRUE(WRabbitSetSFPData(nullptr, "AXGE", a, b, c));
    EXPECT_EQ(fake.newCalls(), "WRabbitSetSFPData 0 \"AXGE\" [1 2 3 4] [5 6 7 8] [9 10 11 12]");
    EXPECT_TRUE(WRabbitSetSFPData(nullptr, std::string(100, 'y').c_str(), nullptr, b, nullptr));
    EXPECT_EQ(fake.newCalls(),
              "WRabbitSetSFPData 0 \"" + std::string(80, 'y') + "\" [0 0 0 0] [5 6 7 8] [0 0 0 0]");

    fake->number("WRabbitSetSFPData", 2, 66);
    fake->endless("WRabbitSetSFPData");
    char text[82] = "AXGE";
    text[81] = '~';
    EXPECT_TRUE(WRabbitGetSFPData(nullptr, text, a, b, c));
    EXPECT_EQ(fake.newCalls(), "WRabbitSetSFPData 0 \"AXGE\" [1 2 3 0] [5 6 7 0] [9 10 11 0]");
    EXPECT_EQ(std::string(text, 82), std::string(80, 'x') + std::string("\0~", 2));
    EXPECT_EQ((std::vector(b, b + 4)), (std::vector{66, 66, 66, 66}));
}

TEST(WhiteRabbit, WhatALibraryWritesIsBounded)
{
    Instrument instrument(CD90);
    Fake &fake = instrument.fake;
    LogCapture log;
    fake->endless("WRabbitGetInitScript");
    std::string room = longText('~') + "~";
    EXPECT_TRUE(WRabbitGetInitScript(nullptr, room.data()));
    EXPECT_EQ(room, std::string(65535, 'x') + std::string("\0~", 2));
    const std::pair<double, size_t> counts[] = {
        {-1, 0}, {INT32_MIN, 0}, {3, 3}, {65536, 65535}, {INT32_MAX, 65535}};
    fake->endless("WRabbitGetTermOutput");
    for (const auto &[told, length] : counts) {
        fake->number("WRabbitGetTermOutput", 1, told);
        room = longText('~') + "~";
        EXPECT_TRUE(WRabbitGetTermOutput(nullptr, room.data()));
        EXPECT_EQ(std::string(room.c_str()), std::string(length, 'x'));
    }
    EXPECT_EQ(linesOf(log, "WRN").size(), 4u);
}

TEST(WhiteRabbit, MacThatIsNone)
{
    Instrument instrument(ZP);
    LogCapture log;
    for (const char *text :
         {"", "00-1a-2b-3c-4d-5", "001a2b3c4d5g", "0x1a2b3c4d5e", "+11a2b3c4d5e", " 11a2b3c4d5e"})
        EXPECT_FALSE(WRabbitSetMAC(nullptr, text)) << text;
    EXPECT_FALSE(WRabbitSetMAC(nullptr, nullptr));
    EXPECT_EQ(instrument.fake.newCalls(), "");
    instrument.device.LibType = LM70; // which looks at no text
    EXPECT_FALSE(WRabbitSetMAC(nullptr, ""));
    EXPECT_EQ(log.count("ERR API WRabbitSetMAC failed: "), 7u);
    EXPECT_EQ(log.count("WRN Config: WRabbitSetMAC is not supported for libType LM70 @77"), 1u);
}

// All twelve where there is nothing to ask, and where the library fails: texts empty, numbers as they were.
TEST(WhiteRabbit, WithoutAnAnswer)
{
    const struct
    {
        const char *Operation;
        std::function<bool(char *, int32_t *)> Call;
        bool HasText = false;
    } cases[] = {
        {"WRabbitGetMAC", [](char *text, int32_t *) { return WRabbitGetMAC(nullptr, text); }, true},
        {"WRabbitSetMAC", [](char *, int32_t *) { return WRabbitSetMAC(nullptr, "001a2b3c4d5e"); }},
        {"WRabbitGetInitScript", [](char *text, int32_t *) { return WRabbitGetInitScript(nullptr, text); },
         true},
        {"WRabbitSetInitScript", [](char *, int32_t *) { return WRabbitSetInitScript(nullptr, "a"); }},
        {"WRabbitSetSFPData", [](char *, int32_t *n) { return WRabbitSetSFPData(nullptr, "a", n, n, n); }},
        {"WRabbitInitLink", [](char *, int32_t *) { return WRabbitInitLink(nullptr, 1); }},
        {"WRabbitSetMode", [](char *, int32_t *) { return WRabbitSetMode(nullptr, 1, 2, 3); }},
        {"WRabbitSetTime", [](char *, int32_t *) { return WRabbitSetTime(nullptr, 1); }},
        {"WRabbitGetTime",
         [](char *, int32_t *n) {
             uint64_t seconds = 7;
             uint32_t part = 7;
             const bool answer = WRabbitGetTime(nullptr, &seconds, &part);
             if (seconds != 7 || part != 7) *n = 0;
             return answer;
         }},
        {"WRabbitGetStatus", [](char *, int32_t *n) { return WRabbitGetStatus(nullptr, n); }},
        {"WRabbitGetTermOutput", [](char *text, int32_t *) { return WRabbitGetTermOutput(nullptr, text); },
         true},
        {"WRabbitSetSFPData",
         [](char *, int32_t *n) {
             char text[81] = "keep";
             const bool answer = WRabbitGetSFPData(nullptr, text, n, nullptr, nullptr);
             return std::string(text) == "keep" && answer;
         }},
    };
    Instrument instrument(ZP);
    Device &device = instrument.device;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.Operation);
        const auto expectNothing = [&](bool answer) {
            char text[65536] = "junk";
            int32_t numbers[4] = {7, 7, 7, 0};
            EXPECT_EQ(c.Call(text, numbers), answer);
            EXPECT_STREQ(text, c.HasText ? "" : "junk");
            EXPECT_EQ((std::vector(numbers, numbers + 4)), (std::vector{7, 7, 7, 0}));
        };
        LogCapture log;
        instrument.fake->answer(c.Operation, 1, -3);
        expectNothing(false);
        instrument.fake.newCalls();
        for (LibType family : {CD, SV40, LM70, Dummy}) {
            device.LibType = family;
            expectNothing(false);
        }
        device.LibType = ZP;
        device.DeviceType = DeviceType::Remote;
        expectNothing(false);
        device.DeviceType = DeviceType::File;
        expectNothing(true);
        device.DeviceType = DeviceType::Instrument;
        EXPECT_EQ(instrument.fake.newCalls(), "");
        for (LibType family : {CD, SV40, LM70, Dummy})
            EXPECT_EQ(log.count(fmt::format("WRN Config: {} is not supported for libType {} @77", c.Operation,
                                            libTypeText(family))),
                      1u);
    }
}

TEST(WhiteRabbit, Lines)
{
    Instrument instrument(ZP);
    LogCapture log;
    char mac[18];
    int32_t numbers[4] = {1, 2, 3, 4};
    WRabbitGetMAC(nullptr, mac);
    WRabbitSetMAC(nullptr, "00-1a-2b-3c-4d-5e");
    WRabbitInitLink(nullptr, 1);
    WRabbitSetTime(nullptr, 4294967301);
    char text[81] = "AXGE";
    WRabbitGetSFPData(nullptr, text, numbers, numbers, numbers);
    for (const char *line : {"INF API WRabbitGetMAC", "DEV ZP_WRabbitGetMAC: 0 @77",
                             "INF API WRabbitSetMAC 00-1a-2b-3c-4d-5e @77", "DEV WRSetMAC: 1a 26 @77",
                             "DEV ZP_WRabbitSetMAC: 0 001a2b3c4d5e @77", "INF API WRabbitSetInitScript 1 @77",
                             "DEV ZP_WRabbitInitLink: 0 1 @77", "INF API WRabbitSetTime 4294967301 @77",
                             "DEV ZP_WRabbitSetTime: 0 4294967301 @77", "INF API WRabbitSetSFPData AXGE @77"}) {
        const auto &lines = log.lines();
        EXPECT_TRUE(std::ranges::count(lines, line)) << line;
    }
}
