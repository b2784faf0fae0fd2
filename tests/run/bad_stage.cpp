// A stage whose work fails or doesn't come back: the next run is entered, whoever ends the stage waits alone,
// and a run that can't be ended is left behind.
#include "manipulators/stage.h"
#include "run/end_run.h"
#include "run/requests.h"
#include "session/open_close.h"
#include "support/host.h" // eventually
#include "support/words.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>

using namespace Tessel;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

struct Bad
{
    std::function<void()> atStart;
};

void startPass(Bad &bad, const StageRef &)
{
    bad.atStart();
}
uint64_t work(Bad &, const StageRef &, Piece in, EventStore &out)
{
    for (uint64_t i = 0; i < in.Count; ++i) append(out, in.Times[i], in.Channels[i]);
    return in.Count;
}

constexpr StageWords words = {nullptr, nullptr, nullptr, nullptr, nullptr};
constexpr size_t records = 2'500'000; // three chunks

} // namespace

template <>
inline constexpr Hook Tessel::hooksOf<Bad> = Hook::StartPass;

namespace {

// A run of a recorded file through a stage of the test.
class BadStage : public testing::Test
{
protected:
    void start(const std::function<void()> &atStart)
    {
        ASSERT_NE(target, noDevice());
        {
            ChainLocks locks(target->context);
            ASSERT_TRUE(addStage(locks, target, record, "Bad_{}",
                                 [atStart](StageRef stage) { runStage(stage, words, Bad{atStart}); }));
        }
        startMeasurement(target, {.Kind = MeasKind::Raw, .FinishedFlag = finished.get()}, deviceLookUp);
    }
    void startStuck()
    {
        start([release = released] { release.wait(); });
        ASSERT_TRUE(eventually([this] { return record->StartedFlag.load(); }));
    }
    void TearDown() override
    {
        if (!isReleased) release.set_value();
        EXPECT_TRUE(eventually([this] { return !liveRun(target->context); }));
        closeDevices();
    }

    static DeviceRef open(const std::string &path, size_t count)
    {
        return openFile(TgxFile::t3().records(std::vector<uint32_t>(count, t3Event(0, 0, 5))).write(path),
                        UINT64_MAX);
    }
    // Events of a whole run on the first input.
    static uint64_t measured(const DeviceRef &device)
    {
        Counts counts(3, 32768);
        startMeasurement(device,
                         {.Kind = MeasKind::Histogram, .Blocking = true, .HistoData = counts.data.data()},
                         deviceLookUp);
        return counts.rowSum(1);
    }

    TempFolder folder;
    DeviceRef target = open(folder.file("a.tgx"), records);
    std::shared_ptr<Manipulator> record = std::make_shared<Manipulator>();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    bool isReleased = false;
    Finished finished;
};

} // namespace

TEST_F(BadStage, IsLeftBehindWithItsRunAndTheLibraryGoesOn)
{
    startStuck();
    forgetLastError();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(endRun(target, 100ms));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s); // a second for its first events, and the patience
    EXPECT_EQ(lastError().substr(0, 38), "Device: The measurement can't be stopp");
    EXPECT_FALSE(finished.isSet()); // its memory is left to it
    EXPECT_EQ(measured(open(folder.file("b.tgx"), 1000)), 1000u);

    release.set_value(); // it comes back after all
    isReleased = true;
    EXPECT_TRUE(finished.wait());
    removeStages(target);
    EXPECT_EQ(measured(target), records);
}

TEST_F(BadStage, IsEndedWithoutHoldingUpOthers)
{
    startStuck();
    std::thread ender([this] { endStage(target, 0); });
    EXPECT_TRUE(eventually([this] { return record->ExitFlag.load(); }));
    auto others = std::async(std::launch::async, [this] {
        for (int turn = 0; turn < 100; ++turn) { // all that a rearrangement locks
            ChainLocks locks(target->context);
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(others.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(eventually([this] { return target->context.Description.NumRecs == records; })); // all is read
    release.set_value();
    isReleased = true;
    ender.join();
}

TEST_F(BadStage, ThatFailsAbortsItsRunOnlyAndEntersTheNext)
{
    std::atomic<int> passes{0};
    start([&passes] {
        if (++passes == 1) throw std::bad_alloc();
    });
    EXPECT_TRUE(finished.wait());
    EXPECT_TRUE(isAborted(*currentRun(target->context)));
    EXPECT_EQ(measured(target), records);
    EXPECT_EQ(passes, 2);
    EXPECT_FALSE(record->ThreadGone);
}
