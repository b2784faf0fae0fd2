// The loop of a stage's thread: between two small stores an instrument clears what is full and goes on, and an
// end waits for no whole batch.
#include "manipulators/chain.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stage_run.h"
#include "support/host.h"
#include "threads/run_control.h"

#include <mutex>

using namespace Tessel;
using namespace TestSupport;

namespace {

// A chain of one merge, which writes two events for each, and a final record that has room for 48.
class SmallChain
{
public:
    explicit SmallChain(DeviceType type)
    {
        target->device.NumChans = 4;
        target->device.IsInitialized = true;
        const StreamFacts facts{.Mode = MeasMode::T2,
                                .MayWait = type == DeviceType::File,
                                .IsLive = type == DeviceType::Instrument};
        run = std::shared_ptr<Run>(new Run{.Facts = facts});
        target->context.CurrentRun = run;
        const int32_t member = 1;
        addMerge(target, std::span(&member, 1), true);
        first = target->context.Manis.front();
        last = std::make_shared<Manipulator>();
        last->Type = ManisType::Store;
        last->HighWater = 32;
        allocate(last->Events, 48);
        ChainLocks locks(target->context);
        last->Index = 1;
        locks.append(last);
        allocate(first->Events, 1000);
    }
    ~SmallChain()
    {
        stopManipulators(target, false, waitLeft);
        advance(target->context, *run, RunPhase::Closed);
        removeStages(target);
    }

    void start() { advance(target->context, *run, RunPhase::Measuring); }
    void feed(const Events &events)
    {
        {
            std::lock_guard lock(first->Lock);
            for (const Event &event : events) append(first->Events, event.time, event.channel);
        }
        first->Changed.notify_all();
    }
    Events take()
    {
        std::lock_guard lock(last->Lock);
        EXPECT_LE(last->Events.Count, 48u);
        Events taken;
        for (uint64_t i = 0; i < last->Events.Count; ++i)
            taken.push_back({last->Events.Times[i], last->Events.Channels[i]});
        last->Events.Count = 0;
        last->Changed.notify_all();
        return taken;
    }
    bool allTaken()
    {
        std::lock_guard lock(first->Lock);
        return first->Events.Count == 0;
    }

    DeviceRef target = std::make_shared<DeviceEntry>();
    std::shared_ptr<Run> run;
    std::shared_ptr<Manipulator> first, last;
};

Events members(uint64_t count)
{
    Events events;
    for (uint64_t i = 0; i < count; ++i) events.push_back({i, 1});
    return events;
}

// The run is aborted while it works.
struct Interrupted
{
    uint64_t Worked = 0;
};

} // namespace

template <>
constexpr Hook Tessel::hooksOf<Interrupted> = Hook::None;

namespace {

uint64_t work(Interrupted &state, const StageRef &stage, Piece in, EventStore &)
{
    stage.run->Control.Aborted = true;
    state.Worked += in.Count;
    return in.Count;
}

} // namespace

TEST(StageLoop, AnEndWaitsForNoWholeBatch)
{
    constexpr uint64_t batch = 1'000'000;
    SmallChain chain(DeviceType::File);
    chain.first->StopFlag = true; // the stage's own thread stays out
    allocate(chain.first->Events, batch);
    allocate(chain.last->Events, batch);
    chain.last->HighWater = batch;
    chain.feed(members(batch));
    chain.start();
    Interrupted state;
    StagePass(StageRef{chain.target, chain.first, chain.run}, StageWords{}, state).run();
    EXPECT_LT(state.Worked, batch / 10);
}

TEST(StageLoop, AnInstrumentClearsAFullStoreAndGoesOn)
{
    SmallChain chain(DeviceType::Instrument);
    chain.feed(members(1000));
    chain.start();
    ASSERT_TRUE(eventually([&] { return chain.allTaken(); }));
    chain.feed({{7, 2}}); // what comes behind the batch that was thrown away
    Events got;
    EXPECT_TRUE(eventually([&] {
        got = chain.take();
        return !got.empty();
    }));
    EXPECT_EQ(show(got), "2@7");
    // The 48 that the store took, made of 24, and those that weren't handed on.
    const Loss loss = lossesOf(*chain.run).Places[static_cast<size_t>(LossPlace::Stage)];
    EXPECT_EQ(loss.Lost, 48u + 1000 - 24);
}

TEST(StageLoop, ADisabledStageLetsNothingThrough)
{
    SmallChain chain(DeviceType::File);
    chain.first->Enabled = false;
    chain.feed(members(10));
    chain.start();
    for (int turn = 0; turn < 2; ++turn) { // it takes what is new only when it is done with what was there
        EXPECT_TRUE(eventually([&] { return chain.allTaken(); }));
        EXPECT_EQ(chain.take(), Events());
        chain.feed(members(10));
    }
}
