// Instruments of all five families, played by fake libraries: finding, picking, initialising, losing and
// closing.
#include "session/instruments.h"

#include "devices/library_versions.h"
#include "session/open_close.h"
#include "session/tables.h"
#include "support/fake.h"
#include "support/log_capture.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

using namespace Tessel;
using namespace TestSupport;

namespace {

struct FamilyCase
{
    Tessel::LibType LibType;
    const char *File, *Prefix;
    int32_t Ports;
    int32_t Number; // of the fake's serials

    std::string serial(int32_t port) const { return fmt::format("{}{}", Number, 1000 + port); }
};

constexpr FamilyCase families[] = {
    {LibType::ZP, "ZPLib64.so", "ZP", 8, 1},       {LibType::CD, "CDLib64.so", "CD", 8, 2},
    {LibType::SV40, "sv40lib64.so", "SV40", 4, 4}, {LibType::LM70, "LM70Lib.so", "LM70", 8, 8},
    {LibType::CD90, "CD90Lib.so", "CD90", 8, 16},
};

class Instruments : public testing::TestWithParam<FamilyCase>
{
protected:
    Instruments() : family(GetParam()), fake(family.File) {}
    ~Instruments() override
    {
        fake->release();
        closeForGood();
    }

    Device &only() { return allDevices().front()->device; }
    bool pick(std::string id)
    {
        id.resize(8192);
        return getDevice(id.data());
    }

    const FamilyCase &family;
    Fake fake;
};

std::string deviceIds()
{
    std::array<char, 8192> text{};
    EXPECT_TRUE(getDeviceIDs(text.data()));
    return text.data();
}

} // namespace

TEST_P(Instruments, AreFoundOncePerPortAndLeftClosed)
{
    for (int32_t count : {0, 1, family.Ports}) {
        fake->reset(count);
        std::string expected;
        for (int32_t port = 0; port < count; ++port)
            expected += fmt::format("{}\"{}\"", port ? "," : "", family.serial(port));
        for (int scan = 0; scan < 2; ++scan) EXPECT_EQ(deviceIds(), "[" + expected + "]");
        for (const DeviceRef &target : allDevices()) EXPECT_FALSE(target->device.IsOpen);
    }
    EXPECT_FALSE(pick("no such id"));
    EXPECT_EQ(currentDevice(), noDevice());
    EXPECT_TRUE(pick(""));
    EXPECT_EQ(currentDevice()->device.ID, family.serial(0));
    deviceIds(); // leaves it open
    EXPECT_TRUE(only().IsOpen);
}

TEST_P(Instruments, ABusyPortIsListedUntilItIsFree)
{
    fake->busy(0);
    LogCapture log;
    const std::string busyId = fmt::format("{}_Port 0 (busy)", family.Prefix);
    EXPECT_EQ(deviceIds(), "[\"" + busyId + "\"]");
    EXPECT_FALSE(pick(busyId));
    EXPECT_FALSE(pick(""));
    fake->reset(1);
    EXPECT_TRUE(pick(busyId));
    EXPECT_EQ(deviceIds(), "[\"" + family.serial(0) + "\"]");
    EXPECT_EQ(log.count(fmt::format("New busy Device {} found @{}", family.Prefix, busyId)), 1u);
    EXPECT_EQ(log.count("ERR "), 0u);
}

TEST_P(Instruments, WhatTheLibraryTellsOfItselfIsRead)
{
    deviceIds();
    const std::string library = std::string(family.Prefix) + "lib";
    bool isKnown = false;
    for (const LibraryVersion &row : libraryVersions()) isKnown |= row.Name == library && row.Version == "3.1";
    EXPECT_TRUE(isKnown);
}

INSTANTIATE_TEST_SUITE_P(Families, Instruments, testing::ValuesIn(families),
                         [](const auto &each) { return std::string(each.param.Prefix); });
