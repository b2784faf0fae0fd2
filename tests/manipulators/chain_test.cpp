// Adding and removing stages: names, numbers of their channels, refusals. The stages' threads run and wait.
#include "manipulators/chain.h"
#include "manipulators/numbering.h"
#include "manipulators/stages.h"
#include "run/requests.h"
#include "threads/run_control.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <future>
#include <thread>

using namespace Tessel;
using namespace std::chrono_literals;

namespace {

class Chain : public testing::Test
{
protected:
    Chain()
    {
        target->device.NumChans = 4;
        target->device.IsInitialized = true;
        target->device.MeasMode = MeasMode::T2;
    }
    ~Chain() override { removeStages(target); }

    const Manipulator &stage(size_t index) { return *target->context.Manis[index]; }
    uint64_t rows() { return numAllChans(target->device, target->context); }

    DeviceRef target = std::make_shared<DeviceEntry>();
    const int32_t inputs[3] = {1, 2, 3};
};

using Bytes = std::vector<uint8_t>;

} // namespace

TEST_F(Chain, NumbersChannelsInTheOrderOfAdding)
{
    EXPECT_EQ(addMerge(target, inputs, true), 5);
    addSubStream(target, 1, 2);
    EXPECT_EQ(addDelay(target, 1, 10, false), 6); // a number that nothing uses
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = inputs, .Keep = false}), 1);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = inputs, .Keep = true}), 7);
    EXPECT_EQ(addCountRate(target, 1000), 5);
    EXPECT_EQ(addDelay(target, 1, 10, true), 10);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = {}, .Keep = true}), 11);
    EXPECT_EQ(rows(), 11u);

    const struct
    {
        const char *name;
        ManisType type;
        Bytes outputs;
    } expected[] = {
        {"Merge_5", ManisType::Merge, {5}},         {"Sub_6", ManisType::SubStream, {}},
        {"Delay_6", ManisType::Delay, {6}},         {"Herald_7", ManisType::Herald, {1, 2, 3}},
        {"Herald_7", ManisType::Herald, {7, 8, 9}}, {"CountRate_10", ManisType::CountRate, {}},
        {"Delay_10", ManisType::Delay, {10}},       {"Herald_11", ManisType::Herald, {}},
    };
    ASSERT_EQ(target->context.Manis.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(stage(i).Name, expected[i].name);
        EXPECT_EQ(stage(i).Type, expected[i].type);
        EXPECT_EQ(stage(i).OutChans, expected[i].outputs) << i;
        EXPECT_EQ(stage(i).NextIndex, static_cast<int32_t>(i + 1));
    }
    EXPECT_EQ(stage(5).Params2, std::vector<int32_t>{5}); // channels made ahead of the count rate
}

TEST_F(Chain, RefusesMoreChannelsThanAStreamHas)
{
    const std::vector<int32_t> many(125, 1);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = many, .Keep = true}), 5);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = many, .Keep = true}), 130);
    EXPECT_EQ(rows(), 255u);
    EXPECT_EQ(addMerge(target, inputs, true), -1);
    EXPECT_EQ(addDelay(target, 1, 10, true), -1);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = inputs, .Keep = true}), -1);
    EXPECT_EQ(addCoincidence(target, {.Channels = inputs}), -1);
    EXPECT_EQ(addHerald(target, {.Herald = 1, .Gated = inputs, .Keep = false}), 1);
    EXPECT_EQ(target->context.Manis.size(), 3u);
    EXPECT_EQ(rows(), 255u);
}

// Each ended stage takes a channel off, also one that made none, and also when it is ended again.
TEST_F(Chain, MoreEndedStagesThanChannelsLeaveNoRows)
{
    addCountRate(target, 1000);
    Manipulator &counter = *target->context.Manis[0];
    {
        std::lock_guard lock(counter.Lock);
        counter.Rates.assign(5, 1.0f);
        counter.StartedFlag = true;
    }
    for (int turn = 0; turn < 7; ++turn) endStage(target, 0);
    EXPECT_EQ(toldChans(target->device, target->context), -2);
    EXPECT_EQ(rows(), 0u);
    std::vector<uint32_t> rates(8, 77);
    EXPECT_TRUE(countRates(target, 0, rates.data()));
    EXPECT_EQ(rates, std::vector<uint32_t>(8, 77));
    addSubStream(target, 1, 2);
    EXPECT_EQ(rows(), 5u);
}

TEST_F(Chain, ChannelNumbersAreBytes)
{
    const int32_t wide[] = {1, 257, -1};
    EXPECT_EQ(channelBytes(wide), (Bytes{1, 1, 255}));
}

TEST_F(Chain, RatesAreThoseOfACountRateThatHasSeenARun)
{
    addMerge(target, inputs, true);
    addCountRate(target, 1000);
    addMerge(target, inputs, true);
    std::vector<uint32_t> rates(rows(), 77);
    for (int32_t index : {-1, 0, 1, 3}) EXPECT_FALSE(countRates(target, index, rates.data())) << index;
    EXPECT_EQ(rates, std::vector<uint32_t>(7, 77));

    Manipulator &counter = *target->context.Manis[1];
    {
        std::lock_guard lock(counter.Lock);
        counter.Rates = {1.4f, 2.5f, NAN, 1e20f, -3.0f, 6.0f};
        counter.StartedFlag = true;
    }
    EXPECT_TRUE(countRates(target, 1, nullptr));
    EXPECT_TRUE(countRates(target, 1, rates.data()));
    EXPECT_EQ(rates, (std::vector<uint32_t>{1, 3, 0, 4294967295, 0, 6, 0})); // it doesn't see the last channel
}

TEST(ChainOfARun, AStopOfTheHostWaitsForNoStageAtWork)
{
    MeasContext context;
    context.CurrentRun = std::shared_ptr<Tessel::Run>(new Tessel::Run{});
    context.Manis.push_back(std::make_shared<Manipulator>());
    std::lock_guard atWork(context.Manis.front()->Lock);
    stopMeasurement(context);
    EXPECT_TRUE(context.CurrentRun->Control.StopByHost);
}

// A stage is removed while it is being woken: the record that moves to its place is woken all the same.
TEST(ChainOfARun, WhoMovesUpIsWokenToo)
{
    MeasContext context;
    for (int i = 0; i < 3; ++i) context.Manis.push_back(std::make_shared<Manipulator>());
    const auto removed = context.Manis[1], last = context.Manis[2];
    std::unique_lock atWork(removed->Lock);
    std::atomic<bool> isDone{false};
    auto waits = [&] {
        std::unique_lock lock(last->Lock);
        const auto start = std::chrono::steady_clock::now();
        last->Changed.wait_for(lock, 10s, [&] { return isDone.load(); });
        return std::chrono::steady_clock::now() - start;
    };
    auto waited = std::async(std::launch::async, waits);
    std::this_thread::sleep_for(50ms); // both are where they wait
    auto woken = std::async(std::launch::async, [&] { isDone = true, wakeChain(context); });
    std::this_thread::sleep_for(50ms);
    {
        std::lock_guard pass(context.PipelineLock);
        std::erase(context.Manis, removed);
    }
    atWork.unlock();
    EXPECT_LT(waited.get(), 5s);
}
