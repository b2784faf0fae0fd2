// The thread of a stage between runs: a pass that fails ends its run only, and a run that was left stays left.
#include "manipulators/stage.h"
#include "support/host.h" // eventually

#include <gtest/gtest.h>

using namespace Tessel;
using namespace std::chrono_literals;

namespace {

constexpr StageWords words = {nullptr, nullptr, nullptr, nullptr, nullptr};

struct Passes
{
    std::atomic<int> &count;
    bool firstFails;
};

void startPass(Passes &passes, const StageRef &)
{
    if (++passes.count == 1 && passes.firstFails) throw std::bad_alloc();
}
uint64_t work(Passes &, const StageRef &, Piece in, EventStore &)
{
    return in.Count;
}
void afterPiece(Passes &, const StageRef &, Piece) {}
void clear(Passes &) {}
bool finishPass(Passes &, const StageRef &, EventStore *)
{
    return true;
}

class StageLife : public testing::Test
{
protected:
    void add(bool firstFails)
    {
        ChainLocks locks(*target.context);
        ASSERT_TRUE(addStage(target, record, "Stage_{}", [this, firstFails](StageRef stage) {
            runStage(stage, words, Passes{passes, firstFails});
        }));
    }
    void startRun()
    {
        record->StopFlag = record->StartedFlag = record->StoppedFlag = false;
        target.context->AbortRequested = false;
        target.context->Measuring = true;
    }
    void endRun()
    {
        stopManipulators(target, false, [] {});
        target.context->Measuring = false;
    }
    void TearDown() override { removeStages(target); }

    DeviceRef target{std::make_shared<Device>(), std::make_shared<MeasContext>()};
    std::shared_ptr<Manipulator> record = std::make_shared<Manipulator>();
    std::atomic<int> passes{0};
};

} // namespace

TEST_F(StageLife, AFailedPassAbortsItsRunAndTheNextIsEntered)
{
    add(true);
    startRun();
    EXPECT_TRUE(TestSupport::eventually([&] { return record->StoppedFlag && target.context->AbortRequested; }));
    endRun();
    startRun();
    EXPECT_TRUE(TestSupport::eventually([&] { return passes == 2; }));
    EXPECT_FALSE(record->ThreadGone);
    EXPECT_FALSE(target.context->AbortRequested);
    endRun();
    EXPECT_TRUE(record->StoppedFlag);
}

TEST_F(StageLife, AnAbortThatIsWithdrawnDoesNotBringTheStageBack)
{
    add(false);
    startRun();
    EXPECT_TRUE(TestSupport::eventually([&] { return passes == 1; }));
    target.context->AbortRequested = true;
    EXPECT_TRUE(TestSupport::eventually([&] { return record->StoppedFlag.load(); }));
    target.context->AbortRequested = false; // as stopMeasure does
    std::this_thread::sleep_for(50ms);      // some of its turns
    EXPECT_EQ(passes, 1);
    endRun();
}
