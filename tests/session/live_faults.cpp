// Every operation that a run calls, failing in its midst: the line of the log, the stop reason, an end in time,
// and the next run.
#include "devices/enum_texts.h"
#include "devices/result.h"
#include "session/open_close.h"
#include "support/failing_call.h"
#include "support/host.h"
#include "support/instrument.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>

using namespace Tessel;
using namespace TestSupport;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int slowness = isSanitized ? 10 : 2;
constexpr std::chrono::milliseconds anEnd = 2s * slowness, atOnce = 100ms * slowness;

const std::set<std::string> polled = {"GetFlags", "CTCStatus", "ReadFiFo", "GetAllHistograms", "GetHistogram"};
const std::set<std::string> lastCalls = {"StopMeas", "GetElapsedMeasTime", "SetStopOverflow", "GetStartTime"};
// Histogramming has these from the same steps as a stream.
const std::set<std::string> common = {"SetMeasControl",     "GetAllCountRates", "GetCountRate",
                                      "GetSyncRate",        "GetWarnings",      "GetWarningsText",
                                      "GetElapsedMeasTime", "SetStopOverflow"};

class LiveFaults : public testing::TestWithParam<LibType>
{
protected:
    ~LiveFaults() override
    {
        fake->release();
        closeForGood();
    }

    void open()
    {
        fake->reset(1);
        fake->number("GetWarnings", 0, 1);
        fake->number("GetSyncRate", 0, 50); // so low that the period is asked for
        target = currentDevice();
        if (target->device.IsOpen) return;
        char id[8192] = "";
        ASSERT_TRUE(getDevice(id));
        ASSERT_TRUE(initDevice(static_cast<int32_t>(mode), 0));
        setSequenceMode(2, 0, 1000); // its count is reset after each run
        setSequenceMode(0, 0, 0);
        fake->reset(1);
        open();
    }

    void start(Finished &finished)
    {
        if (mode == MeasMode::Histogramming)
            getHistogram(nullptr, 100'000, 0, 0, counts.data(), finished.get());
        else
            rawMeasure(nullptr, 100'000, 0, 0, counts.data(), &count, counts.size(), finished.get());
    }

    size_t calls(const std::string &operation)
    {
        const std::vector<std::string> all = fake.journal();
        return static_cast<size_t>(std::ranges::count_if(
            all, [&](const std::string &call) { return (call + " ").starts_with(operation + " "); }));
    }
    bool measures()
    {
        return eventually([this] { return calls("GetFlags") > 2; });
    }
    // Of an instrument that was lost; debug texts aside.
    std::string callsAfterTheClose()
    {
        const std::vector<std::string> all = fake.journal();
        auto at = std::ranges::find_if(all, [](const auto &call) { return call.starts_with("CloseDevice"); });
        std::string calls;
        for (; at != all.end(); ++at)
            if (!at->starts_with("CloseDevice") && at->find("Debug") == std::string::npos) calls += *at + "; ";
        return calls;
    }
    StopReason reason() { return target->context.Description.StopReason; }

    // The operations of a whole run, without those that only a failure brings.
    std::set<std::string> operationsOfARun()
    {
        open();
        Finished finished;
        start(finished);
        EXPECT_TRUE(measures());
        stopMeasure(nullptr);
        EXPECT_TRUE(finished.wait());
        std::set<std::string> names;
        for (const std::string &call : fake.journal()) names.insert(call.substr(0, call.find(' ')));
        return names;
    }

    // In mid-run, or at its one call.
    void prepare(const std::string &operation, Finished &finished, auto fail)
    {
        open();
        if (!polled.contains(operation)) fail();
        start(finished);
        if (!polled.contains(operation)) return;
        EXPECT_TRUE(measures());
        fail();
    }

    // Manual: the run goes on until it is stopped.
    StopReason expected(const std::string &operation, int32_t code) const
    {
        if (operation == "StartMeas") return StopReason::SyncLost;
        // CD and SV40 are also asked for it with the count rates, before the start.
        const bool isAtStart = GetParam() != LibType::CD && GetParam() != LibType::SV40;
        if (operation == "GetSyncRate" && (isAtStart || code != deviceLost)) return StopReason::Unknown;
        if (operation == "CTCStatus" && code != deviceLost) return StopReason::Unknown;
        if (operation == "StopMeas" && mode == MeasMode::T3 && code == deviceLost)
            return StopReason::DataXferFail; // the FIFO would be read once more
        if (lastCalls.contains(operation)) return StopReason::Manual;
        return code == deviceLost || polled.contains(operation) ? StopReason::DataXferFail : StopReason::Manual;
    }

    void failWith(const std::string &operation, int32_t code)
    {
        SCOPED_TRACE(fmt::format("{} {}", operation, code));
        LogCapture log;
        Finished finished;
        prepare(operation, finished, [&] { fake->answer(operation.c_str(), 0, code); });
        const StopReason told = expected(operation, code);
        if (told == StopReason::Manual || lastCalls.contains(operation)) {
            EXPECT_TRUE(measures());
            stopMeasure(nullptr);
        }
        EXPECT_TRUE(finished.wait(anEnd));
        EXPECT_EQ(reason(), told);
        EXPECT_EQ(callsAfterTheClose(), "");
        EXPECT_GE(log.count(failureLine(GetParam(), operation, code)), 1u);
    }

    void hangIn(const std::string &operation)
    {
        SCOPED_TRACE(operation);
        Finished finished;
        prepare(operation, finished, [&] { fake->hang(operation.c_str()); });
        const auto hangs = [this] { return fake->isHanging(); };
        EXPECT_TRUE(lastCalls.contains(operation) ? measures() : eventually(hangs));
        const auto begin = Clock::now();
        stopMeasure(nullptr);
        EXPECT_LT(Clock::now() - begin, atOnce);
        EXPECT_TRUE(eventually(hangs));
        EXPECT_FALSE(finished.isSet());
        fake->release();
        EXPECT_TRUE(finished.wait(anEnd));
        EXPECT_EQ(reason(), StopReason::Manual);
    }

    void failInEachOperation(MeasMode of)
    {
        mode = of;
        closeForGood();
        const std::set<std::string> operations = operationsOfARun();
        EXPECT_GE(operations.size(), 10u);
        for (const std::string &operation : operations) {
            if (mode == MeasMode::Histogramming && common.contains(operation)) continue;
            failWith(operation, -1);
            failWith(operation, deviceLost);
            hangIn(operation);
        }
        EXPECT_EQ(operationsOfARun(), operations); // as if nothing had been
    }

    Fake fake{libraryOf(GetParam())->FileName};
    DeviceRef target; // is no longer current once it is lost
    MeasMode mode = MeasMode::T3;
    std::vector<uint32_t> counts = std::vector<uint32_t>(5 * 65536);
    uint64_t count = 0;
};

} // namespace

TEST_P(LiveFaults, OfAStream)
{
    failInEachOperation(MeasMode::T3);
}

TEST_P(LiveFaults, OfHistogramming)
{
    failInEachOperation(MeasMode::Histogramming);
}

INSTANTIATE_TEST_SUITE_P(Families, LiveFaults, testing::ValuesIn(fiveFamilies),
                         [](const auto &each) { return libTypeText(each.param); });
