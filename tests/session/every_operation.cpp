// Every operation of every library, answering in every bad way: each failure is one line that names the call,
// and the next good call works.
#include "devices/acquisition.h"
#include "devices/event_filter.h"
#include "devices/identity.h"
#include "devices/inputs.h"
#include "devices/library_versions.h"
#include "devices/markers.h"
#include "devices/primitives.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "devices/sync.h"
#include "devices/white_rabbit.h"
#include "run/requests.h"
#include "session/instruments.h"
#include "session/open_close.h"
#include "session/tables.h"
#include "stream/event_store.h"
#include "support/failing_call.h"
#include "support/host.h"
#include "support/instrument.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <future>
#include <limits>
#include <set>
#include <string>

using namespace Tessel;
using namespace TestSupport;

namespace {

using Operations = std::set<std::string>;

Operations operationsOf(LibType family)
{
    Operations names;
    for (const AnyOperation *each = libraryOf(family)->First; each; each = each->Next) names.insert(each->Name);
    return names;
}

// They are called after a failure, and say nothing of their own.
bool isSilent(const std::string &operation)
{
    return operation == "GetErrorString" || operation == "GetDebugInfo" || operation == "GetHardwareDebugInfo";
}

constexpr int32_t codes[] = {-1, -2, -5, deviceLost, std::numeric_limits<int32_t>::min()};

class EveryOperation : public testing::TestWithParam<LibType>
{
protected:
    EveryOperation()
    {
        scanDevices();
        target = allDevices().front();
        reset();
    }
    ~EveryOperation() override
    {
        fake->release();
        closeForGood();
    }

    void reset()
    {
        fake->reset(2);
        fake->text("GetHardwareInfo", 0, "Sarvex 40 P");
        fake->number("GetWarnings", 0, 1);
        fake->answer("SetSyncDiv", 1, -7); // brings the calls that only a failure brings
    }

    void setParameters()
    {
        Device &device = target->device;
        for (int32_t mode : {0, 1}) SetSyncTrgMode(device, mode);
        SetSyncEdgeTrig(device, -50, 1);
        SetSyncCFD(device, -50, 0);
        SetTriggerOutput(device, 5);
        SetMarkerEdges(device, {1, 0, 1, 0});
        SetMarkerEnable(device, {1, 0, 1, 0});
        SetMarkerHoldoffTime(device, 5);
        ChannelRow &row = device.ChansCfg.front();
        for (int32_t mode : {0, 1}) SetInputTrgMode(device, row, mode);
        SetInputEdgeTrig(device, row, -50, 1);
        SetInputCFD(device, row, -50, 0);
    }

    void filterEvents()
    {
        Device &device = target->device;
        MainFilter &filter = target->context.Filter;
        int32_t syncRate = 0;
        std::vector<int32_t> rates(mostInputs);
        EnableMainEventFilter(device, filter, 1);
        SetMainEventFilterChannels(device, filter, 0, {1, 2});
        SetMainEventFilterParams(device, filter, {});
        EnableRowEventFilter(device, 0, 1);
        SetRowEventFilter(device, 0, {}, {});
        SetFilterTestMode(device, 1);
        GetMainFilteredRates(device, &syncRate, rates.data());
        GetRowFilteredRates(device, &syncRate, rates.data());
    }

    void alignClocks()
    {
        Device &device = target->device;
        std::string text;
        SfpData sfp;
        uint64_t seconds = 0;
        uint32_t subSecond = 0;
        int32_t status = 0;
        WRabbitGetMAC(device, text);
        WRabbitSetMAC(device, "00-1a-2b-3c-4d-5e");
        WRabbitGetInitScript(device, text);
        WRabbitSetInitScript(device, "boot");
        WRabbitSetSFPData(device, sfp);
        WRabbitInitLink(device, 1);
        WRabbitSetMode(device, 1, 2, 3);
        WRabbitSetTime(device, 5);
        WRabbitGetTime(device, seconds, subSecond);
        WRabbitGetStatus(device, status);
        WRabbitGetTermOutput(device, terminal);
        EXPECT_LE(terminal.size(), 65536u);
    }

    void measure()
    {
        Device &device = target->device;
        MeasContext &context = target->context;
        int32_t flags = 0, status = 0, rate = 0;
        double seconds = 0;
        StartMeasure(device, 1000, true);
        getFlags(device, flags, true);
        getCtcStatus(device, status, true);
        readFifo(device, room.get(), words);
        StopMeasure(device, true);
        readCountRates(device, context);
        getSyncRate(device, context, rate);
        getSyncPeriod(device, context, seconds);
        getElapsedMeasTime(device, elapsed);
        GetStartTime(device, context);
    }

    // Calls every operation that the family has at least once.
    void tour()
    {
        Device &device = target->device;
        GetLibraryVersion(device);
        openInstrument(target, false);
        makeCurrent(target);
        GetWarnings(device, target->context);
        initDevice(target, 0, 0); // histogramming
        histogramBins = static_cast<double>(device.NumBins);
        clearHistMem(device, true);
        std::vector<uint32_t> rows(5 * device.NumBins); // of sync and four inputs
        getHistograms(device, rows, true, true);
        initDevice(target, 2, 0);
        if (!device.ChansCfg.empty()) setParameters();
        filterEvents();
        alignClocks();
        measure();
        Tessel::closeDevice(target);
    }

    const LibType family = GetParam();
    const std::string prefix = libraryOf(family)->Prefix;
    Fake fake{libraryOf(family)->FileName, 2};
    DeviceRef target;
    PageArray<uint32_t> room = [] {
        PageArray<uint32_t> pages;
        EXPECT_TRUE(allocatePages(pages, 1048576));
        return pages;
    }();
    uint64_t words = 0;
    double elapsed = 1, histogramBins = 0;
    std::string terminal;
};

} // namespace

TEST_P(EveryOperation, IsCalled)
{
    fake.newCalls();
    tour();
    Operations called;
    for (const std::string &line : fake.journal()) called.insert(line.substr(0, line.find(' ')));
    EXPECT_EQ(called, operationsOf(family));
    Operations all;
    for (LibType each : fiveFamilies) all.merge(operationsOf(each));
    EXPECT_EQ(all.size(), 87u);
}

// -36 closes the device; it opens again.
TEST_P(EveryOperation, ThatFailsIsNamedAndTheNextCallWorks)
{
    const Operations operations = operationsOf(family);
    for (const std::string &operation : operations) {
        LogCapture log;
        for (int32_t code : codes) {
            SCOPED_TRACE(fmt::format("{}{} {}", prefix, operation, code));
            reset();
            fake->answer(operation.c_str(), 0, code);
            tour();
            EXPECT_FALSE(target->device.IsOpen && operation != "CloseDevice");
            reset();
            tour();
            EXPECT_FALSE(target->device.IsOpen);
            EXPECT_EQ(target->device.Error, 0);
        }
        for (int32_t code : codes)
            EXPECT_GE(log.count(failureLine(family, operation, code)), isSilent(operation) ? 0u : 1u);
    }
}

// The call keeps the device's mutex; all else goes on.
TEST_P(EveryOperation, ThatHangsDelaysItsDeviceAlone)
{
    const DeviceRef other = allDevices().back();
    ASSERT_NE(other, target);
    ASSERT_TRUE(openInstrument(other, false));
    for (const std::string &operation : operationsOf(family)) {
        SCOPED_TRACE(prefix + operation);
        reset();
        fake->hang(operation.c_str());
        auto end = std::async(std::launch::async, [this] { tour(); });
        auto isHanging = [&] {
            const std::vector<std::string> calls = fake.journal();
            return std::ranges::any_of(
                calls, [&](const std::string &call) { return (call + " ").starts_with(operation + " "); });
        };
        EXPECT_TRUE(eventually(isHanging));
        EXPECT_TRUE(SetSyncChannelOffset(other->device, 1));
        stopMeasurement(target->context);
        EXPECT_EQ(end.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
        fake->release();
        end.get();
        EXPECT_FALSE(target->device.IsOpen);
    }
}

TEST_P(EveryOperation, WithTextsWithoutEndIsCut)
{
    for (const std::string &operation : operationsOf(family)) fake->endless(operation.c_str());
    tour();
    const Device &device = target->device;
    EXPECT_EQ(device.Model.size(), 32u);
    EXPECT_EQ(device.PartNo.size(), 32u);
    EXPECT_EQ(device.Version.size(), 32u);
    EXPECT_EQ(device.ID.size(), 64u);
}

// Numbers are forced into what they can be; one that isn't finite is left out.
TEST_P(EveryOperation, WithNumbersThatCantBeIsBounded)
{
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    constexpr double lowest = std::numeric_limits<int32_t>::min(), high = 1 << 30;
    const Device &device = target->device;
    const MeasContext &context = target->context;
    const struct
    {
        std::string operation;
        int32_t out; // its number in the call
        std::vector<double> given;
        std::function<double()> taken;
        double least, most;
    } rows[] = {
        {"GetNumOfInputChannels", 0, {-1, high, lowest}, [&] { return device.NumChans; }, 0, 4095},
        {"GetNumOfModules", 0, {-1, high, lowest}, [&] { return device.NumMods; }, 0, 4095},
        {"GetBaseResolution", 0, {none, INFINITY}, [&] { return device.BaseResolution; }, 5, 5},
        {"GetBaseResolution", 1, {-1, lowest}, [&] { return device.MaxBinSteps; }, 0, 1}, // SetBinning raises
                                                                                          // it
        {"GetResolution", 0, {none, -INFINITY}, [&] { return device.Resolution; }, 5, 5},
        {"SetHistoLen", 0, {-1, 0, high, lowest}, [&] { return histogramBins; }, 1, 1048576},
        {"ReadFiFo", 0, {-1, high, lowest}, [&] { return words; }, 0, 1048576},
        {"GetElapsedMeasTime", 0, {none, INFINITY}, [&] { return elapsed; }, 1, 1},
        {"GetSyncPeriod",
         0,
         {none, INFINITY},
         [&] { return context.Description.AveSyncPeriod.load(); },
         0,
         1e300},
        {"GetSyncRate", 0, {-1, lowest}, [&] { return context.SyncRate.load(); }, 0, 0},
        {"GetAllCountRates", 1, {-1, lowest}, [&] { return context.CountRates[1].load(); }, 0, 0},
        {"GetCountRate", 0, {-1, lowest}, [&] { return context.CountRates[1].load(); }, 0, 0},
        {"WRabbitGetTermOutput", 1, {-1, high, lowest}, [&] { return terminal.size(); }, 0, 65536},
    };
    LogLevel.Device = false; // of 4095 inputs each call has a line: more than the log's queue takes
    tour();
    for (const auto &[operation, out, given, taken, least, most] : rows) {
        if (!operationsOf(family).count(operation)) continue;
        for (const double value : given) {
            SCOPED_TRACE(fmt::format("{}{} {}", prefix, operation, value));
            reset();
            LogCapture log;
            fake->number(operation.c_str(), out, value);
            tour();
            EXPECT_GE(taken(), least);
            EXPECT_LE(taken(), most);
            EXPECT_GE(log.count("WRN Device: The instrument gives"), 1u);
        }
    }
    LogLevel.Device = true;
}

INSTANTIATE_TEST_SUITE_P(Families, EveryOperation, testing::ValuesIn(fiveFamilies),
                         [](const auto &each) { return libTypeText(each.param); });
