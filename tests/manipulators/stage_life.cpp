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

} // namespace

template <>
inline constexpr Hook Tessel::hooksOf<Passes> = Hook::StartPass;

namespace {

class StageLife : public testing::Test
{
protected:
    void add(bool firstFails)
    {
        ChainLocks locks(target->context);
        ASSERT_TRUE(addStage(locks, target, record, "Stage_{}", [this, firstFails](StageRef stage) {
            runStage(stage, words, Passes{passes, firstFails});
        }));
    }
    void startRun()
    {
        record->StopFlag = record->StartedFlag = record->StoppedFlag = false;
        run = std::shared_ptr<Tessel::Run>(new Tessel::Run{});
        {
            std::lock_guard lock(target->context.RunLock);
            target->context.CurrentRun = run;
        }
        advance(target->context, *run, RunPhase::Measuring);
    }
    void endRun()
    {
        stopManipulators(target, false, waitLeft);
        advance(target->context, *run, RunPhase::Over);
    }
    void TearDown() override { removeStages(target); }

    DeviceRef target = std::make_shared<DeviceEntry>();
    std::shared_ptr<Manipulator> record = std::make_shared<Manipulator>();
    std::shared_ptr<Tessel::Run> run;
    std::atomic<int> passes{0};
};

} // namespace

TEST_F(StageLife, AFailedPassAbortsItsRunAndTheNextIsEntered)
{
    add(true);
    startRun();
    EXPECT_TRUE(TestSupport::eventually([&] { return record->StoppedFlag && isAborted(*run); }));
    endRun();
    startRun();
    EXPECT_TRUE(TestSupport::eventually([&] { return passes == 2; }));
    EXPECT_FALSE(record->ThreadGone);
    EXPECT_FALSE(isAborted(*run));
    endRun();
    EXPECT_TRUE(record->StoppedFlag);
}
