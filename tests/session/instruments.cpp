// Instruments of all five families, played by fake libraries: finding, picking, initialising, losing and
// closing.
#include "session/instruments.h"

#include "devices/result.h"
#include "session/open_close.h"
#include "session/tables.h"
#include "support/host.h"
#include "support/instrument.h"
#include "support/refused_memory.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

using namespace Tessel;
using namespace TestSupport;

namespace {

std::string serialOf(LibType family, int32_t port)
{
    return fmt::format("{}{}", 1 << static_cast<int32_t>(family), 1000 + port);
}

class Instruments : public testing::TestWithParam<LibType>
{
protected:
    ~Instruments() override
    {
        fake->release();
        closeForGood();
    }

    bool pick(std::string id)
    {
        id.resize(8192);
        return getDevice(id.data());
    }

    const LibType family = GetParam();
    const int32_t ports = family == LibType::SV40 ? 4 : 8;
    Fake fake{libraryOf(family)->FileName};
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
    for (int32_t count : {0, 1, ports}) {
        fake->reset(count);
        std::string expected;
        for (int32_t port = 0; port < count; ++port)
            expected += fmt::format("{}\"{}\"", port ? "," : "", serialOf(family, port));
        for (int scan = 0; scan < 2; ++scan) EXPECT_EQ(deviceIds(), "[" + expected + "]");
        for (const DeviceRef &target : allDevices()) EXPECT_FALSE(target->device.IsOpen);
    }
    EXPECT_FALSE(pick("no such id"));
    EXPECT_EQ(currentDevice(), noDevice());
    EXPECT_TRUE(pick(""));
    EXPECT_EQ(currentDevice()->device.ID, serialOf(family, 0));
    deviceIds(); // leaves it open
    EXPECT_TRUE(allDevices().front()->device.IsOpen);
}

TEST_P(Instruments, ABusyPortIsListedUntilItIsFree)
{
    fake->busy(0);
    LogCapture log;
    const std::string busyId = fmt::format("{}_Port 0 (busy)", libTypeText(family));
    EXPECT_EQ(deviceIds(), "[\"" + busyId + "\"]");
    EXPECT_FALSE(pick(busyId));
    EXPECT_FALSE(pick(""));
    fake->reset(1);
    EXPECT_TRUE(pick(busyId));
    EXPECT_EQ(deviceIds(), "[\"" + serialOf(family, 0) + "\"]");
    EXPECT_EQ(log.count(fmt::format("New busy Device {} found @{}", libTypeText(family), busyId)), 1u);
    EXPECT_EQ(log.count("ERR "), 0u);
}

namespace {

struct InitCase
{
    LibType Family;
    MeasMode Mode;
    std::string_view Calls; // with one input
};

// After Initialize: what the instrument says of itself, sync, acquisition, input.
constexpr InitCase initCases[] = {
    {LibType::ZP, MeasMode::T3,
     "Initialize 0 3 7; GetHardwareInfo 0; GetFeatures 0; GetBaseResolution 0; GetResolution 0; "
     "GetNumOfInputChannels 0; GetNumOfModules 0; GetModuleInfo 0 0; GetModuleInfo 0 1; "
     "SetSyncDiv 0 1; SetSyncEdgeTrg 0 -40 0; SetSyncChannelOffset 0 0; SetSyncChannelEnable 0 1; "
     "SetSyncDeadTime 0 0 800; SetInputHysteresis 0 0; SetTriggerOutput 0 0; SetOflCompression 0 2; "
     "SetStopOverflow 0 0 1; SetBinning 0 0; GetResolution 0; SetOffset 0 0; SetMeasControl 0 0 0 0; "
     "SetInputEdgeTrg 0 0 -40 0; SetInputChannelOffset 0 0 0; SetInputChannelEnable 0 0 1; "
     "SetInputDeadTime 0 0 0 800"},
    {LibType::CD, MeasMode::T2,
     "Initialize 0 2 1; Calibrate 0; GetHardwareInfo 0; GetFeatures 0; GetBaseResolution 0; GetResolution 0; "
     "GetNumOfInputChannels 0; GetNumOfModules 0; GetModuleInfo 0 0; GetModuleInfo 0 1; "
     "SetSyncDiv 0 1; SetSyncCFD 0 50 0; SetSyncChannelOffset 0 0; "
     "SetStopOverflow 0 0 1; GetResolution 0; SetMeasControl 0 0 0 0; "
     "SetInputCFD 0 0 50 0; SetInputChannelOffset 0 0 0; SetInputChannelEnable 0 0 1"},
    {LibType::SV40, MeasMode::Histogramming,
     "Initialize 0 0; GetHardwareInfo 0; GetFeatures 0; GetBaseResolution 0; GetResolution 0; "
     "GetNumOfInputChannels 0; "
     "SetSyncDiv 0 1; SetSyncCFD 0 -50 0; SetSyncChannelOffset 0 0; "
     "SetStopOverflow 0 0 1; SetTimingMode 0 0; SetBinning 0 0; GetResolution 0; SetOffset 0 0; "
     "SetHistoLen 0 5; ClearHistMem 0; SetMeasControl 0 0 0 0; "
     "SetInputCFD 0 0 0 0; SetInputChannelOffset 0 0 0; SetInputChannelEnable 0 0 1; SetInputDeadTime 0 0 0"},
    {LibType::LM70, MeasMode::T3,
     "Initialize 0 3 0; GetHardwareInfo 0; GetFeatures 0; GetBaseResolution 0; GetResolution 0; "
     "GetNumOfInputChannels 0; "
     "SetSyncDiv 0 1; SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -40 0; SetSyncChannelOffset 0 0; "
     "SetSyncChannelEnable 0 1; SetSyncDeadTime 0 0 800; SetInputHysteresis 0 0; SetTriggerOutput 0 0; "
     "SetOflCompression 0 2; "
     "SetStopOverflow 0 0 1; SetBinning 0 0; GetResolution 0; SetOffset 0 0; SetMeasControl 0 0 0 0; "
     "SetInputTrgMode 0 0 0; SetInputEdgeTrg 0 0 -40 0; SetInputChannelOffset 0 0 0; "
     "SetInputChannelEnable 0 0 1; SetInputDeadTime 0 0 0 800"},
    {LibType::CD90, MeasMode::Histogramming,
     "Initialize 0 0 7; GetHardwareInfo 0; GetFeatures 0; GetBaseResolution 0; GetResolution 0; "
     "GetNumOfInputChannels 0; GetNumOfModules 0; GetModuleInfo 0 0; GetModuleInfo 0 1; GetSyncFeatures 0; "
     "SetSyncDiv 0 1; SetSyncTrgMode 0 0; SetSyncEdgeTrg 0 -40 0; SetSyncChannelOffset 0 0; "
     "SetSyncChannelEnable 0 1; SetSyncDeadTime 0 0 800; SetInputHysteresis 0 0; SetTriggerOutput 0 0; "
     "SetStopOverflow 0 0 1; SetBinning 0 0; GetResolution 0; SetOffset 0 0; SetHistoLen 0 6; ClearHistMem 0; "
     "SetMeasControl 0 0 0 0; "
     "GetInputFeatures 0 0; SetInputTrgMode 0 0 0; SetInputEdgeTrg 0 0 -40 0; SetInputChannelOffset 0 0 0; "
     "SetInputChannelEnable 0 0 1; SetInputDeadTime 0 0 0 800; SetLEDBrightness 0 2"},
};

} // namespace

TEST_P(Instruments, AreToldTheirParametersInAFixedOrder)
{
    const auto &row = *std::ranges::find(initCases, family, &InitCase::Family);
    fake->number("GetNumOfInputChannels", 0, 1);
    fake->text("GetHardwareInfo", 0, "Sarvex 40 P");
    EXPECT_FALSE(initDevice(3, 0)); // no device
    ASSERT_TRUE(pick(""));
    fake.newCalls();
    LogCapture log;
    EXPECT_TRUE(initDevice(static_cast<int32_t>(row.Mode), 7));
    EXPECT_EQ(fake.newCalls(), row.Calls);
    const bool hasModules = row.Calls.find("GetNumOfModules") != std::string_view::npos;
    EXPECT_EQ(log.count("WRN Config: GetModules is not supported for libType "), hasModules ? 0u : 1u);
    EXPECT_EQ(currentDevice()->device.HwFilteRowWidth, family == LibType::CD90 ? 16u : 8u);

    fake->answer("SetSyncDiv", 0, -5); // a refusal on the way doesn't matter
    EXPECT_TRUE(initDevice(static_cast<int32_t>(row.Mode), 7));
    fake->answer("Initialize", 0, -5);
    EXPECT_FALSE(initDevice(static_cast<int32_t>(row.Mode), 7));
    EXPECT_FALSE(currentDevice()->device.IsInitialized);
}

TEST_P(Instruments, ThatAreLostAreClosedAndNoLongerCurrent)
{
    ASSERT_TRUE(pick(""));
    ASSERT_TRUE(initDevice(3, 0));
    const DeviceRef lost = currentDevice();
    fake->answer("SetSyncDiv", 1, deviceLost);
    EXPECT_FALSE(setSyncDiv(nullptr, 1));
    EXPECT_FALSE(lost->device.IsOpen || lost->device.IsInitialized);
    EXPECT_EQ(currentDevice(), noDevice());
    fake->reset(0); // gone
    EXPECT_FALSE(pick(""));
    EXPECT_EQ(deviceIds(), "[\"" + lost->device.ID + "\"]");
    fake->reset(1); // back
    EXPECT_TRUE(pick(lost->device.ID));
    EXPECT_EQ(currentDevice(), lost);
    EXPECT_TRUE(initDevice(3, 0));
}

// The run is left to itself, and the next start of the library works.
TEST(InstrumentThatHangs, HoldsUpTheEndForTenSeconds)
{
    const std::pair<int32_t, const char *> rows[] = {{2, "ReadFiFo"}, {0, "GetAllHistograms"}};
    std::vector<uint32_t> counts(5 * 65536);
    for (const auto &[mode, operation] : rows) {
        SCOPED_TRACE(operation);
        Fake fake(libraryOf(LibType::ZP)->FileName);
        char id[8192] = "";
        ASSERT_TRUE(getDevice(id));
        ASSERT_TRUE(initDevice(mode, 0));
        fake->hang(operation);
        uint8_t finished = 0;
        getHistogram(nullptr, 1000, 0, 0, counts.data(), &finished);
        ASSERT_TRUE(
            eventually([&, name = operation] { return fake.newCalls().find(name) != std::string::npos; }));
        const auto begin = std::chrono::steady_clock::now();
        auto took = [&] { return std::chrono::steady_clock::now() - begin; };
        stopMeasure(nullptr);
        EXPECT_LT(took(), std::chrono::seconds(1));
        exitAPI();
        EXPECT_LT(took(), std::chrono::seconds(12));
        fake->release();
        ASSERT_TRUE(eventually([&] { return std::atomic_ref(finished).load() != 0; }));
        EXPECT_TRUE(getDevice(id));
        closeForGood();
    }
}

TEST(InstrumentWithoutMemory, IsClosedAtTheEnd)
{
    Fake fake(libraryOf(LibType::ZP)->FileName);
    for (const uint64_t refused : {1, 2, 3}) { // what a thread for the call takes
        char id[8192] = "";
        ASSERT_TRUE(getDevice(id));
        const DeviceRef target = currentDevice();
        {
            const RefusedMemory none(refused, 1);
            exitAPI();
        }
        EXPECT_FALSE(target->device.IsOpen) << refused;
        EXPECT_EQ(deviceCount(), 0u) << refused;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, Instruments, testing::ValuesIn(fiveFamilies),
                         [](const auto &each) { return libTypeText(each.param); });
