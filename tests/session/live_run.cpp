// Runs on an instrument, played by a fake library: what it is asked, what ends the run, what is read.
#include "devices/result.h"
#include "session/open_close.h"
#include "support/host.h"
#include "support/instrument.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using namespace Tessel;
using namespace TestSupport;

namespace {

class LiveRun : public testing::Test
{
protected:
    ~LiveRun() override { closeForGood(); }

    void init(MeasMode mode)
    {
        char id[8192] = "";
        ASSERT_TRUE(getDevice(id));
        ASSERT_TRUE(initDevice(static_cast<int32_t>(mode), 0));
        fake.newCalls();
    }
    StopReason reason() { return currentDevice()->context.Description.StopReason; }

    Fake fake{libraryOf(LibType::ZP)->FileName};
    std::vector<uint32_t> block = std::vector<uint32_t>(1000);
    uint64_t count = 0;
    Finished finished;
};

} // namespace

TEST_F(LiveRun, ReadsWhatComesUntilTheTimerHasRunOut)
{
    init(MeasMode::T2);
    std::vector<uint32_t> words(100);
    std::iota(words.begin(), words.end(), t2Event(1, 5));
    fake->words(words.data(), words.size());
    rawMeasure(nullptr, 250, 0, 0, block.data(), &count, block.size(), finished.get());
    ASSERT_TRUE(eventually([&] { return described("NumRecs") == 100; }));
    fake->words(words.data(), 10); // the last ones
    fake->number("CTCStatus", 0, 1);
    ASSERT_TRUE(finished.wait());
    EXPECT_EQ(count, 110u);
    EXPECT_TRUE(std::equal(words.begin(), words.end(), block.begin()));
    EXPECT_EQ(reason(), StopReason::TimeOver);
    EXPECT_EQ(described("StopAfter"), 1);
    EXPECT_EQ(described("AcqTime"), 250);

    const std::string calls = fake.newCalls();
    EXPECT_TRUE(calls.starts_with("SetMeasControl 0 0 0 0; GetAllCountRates 0; GetWarnings 0; StartMeas 0 250; "
                                  "GetSyncRate 0; GetFlags 0; CTCStatus 0; ReadFiFo 0; GetFlags 0"));
    EXPECT_TRUE(calls.ends_with("ReadFiFo 0; StopMeas 0; ReadFiFo 0; GetElapsedMeasTime 0; GetStartTime 0"));
}

// Without an acquisition time it is told to wait for the stop, which it doesn't remember.
TEST_F(LiveRun, WithoutATimeEndsAtTheStop)
{
    init(MeasMode::T2);
    fake->number("CTCStatus", 0, 1); // never seen running, so not believed
    rawMeasure(nullptr, 0, 1, 0, block.data(), &count, block.size(), finished.get());
    EXPECT_FALSE(finished.isSet());
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_EQ(reason(), StopReason::Manual);
    EXPECT_TRUE(fake.newCalls().starts_with("SetMeasControl 0 6 0 0; "));
    EXPECT_EQ(currentDevice()->device.MeasControl, 0);
}

TEST_F(LiveRun, T3TakesTheSyncPeriodFromTheRateUnlessItIsLow)
{
    const struct
    {
        double rate, periodSeconds;
        int64_t periodPs;
    } rows[] = {{80'000'000, 1, 12'500}, {100, 1, 10'000'000'000}, {99, 0.01, 10'000'000'000}, {99, 0, 1}};
    for (const auto &[rate, seconds, periodPs] : rows) {
        SCOPED_TRACE(rate);
        fake->reset(1);
        init(MeasMode::T3);
        fake->number("GetSyncRate", 0, rate);
        fake->number("GetSyncPeriod", 0, seconds);
        fake->answer("ReadFiFo", 1, -5);
        rawMeasure(nullptr, 250, 1, 0, block.data(), &count, block.size(), nullptr);
        EXPECT_EQ(currentDevice()->device.SyncPeriodPs, periodPs);
    }
}

// A host that fetches one of four batches, with a block that is smaller than a batch: every word is an event
// that it got, or one that the ledger has.
TEST_F(LiveRun, WhatGetsLostIsInTheLedgerToTheWord)
{
    constexpr uint32_t batches = 20, wordsOfBatch = 1000, blockSize = 700;
    const struct
    {
        uint32_t invalid; // words of a batch
        bool hasStage;
        tessel_verdict verdict;
    } rows[] = {{0, false, TESSEL_LOSSY}, {10, false, TESSEL_INVALID}, {0, true, TESSEL_LOSSY}};
    std::vector<uint64_t> times(blockSize), taken(blockSize);
    std::vector<uint8_t> channels(blockSize), takenChannels(blockSize);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.invalid + (row.hasStage ? 100 : 0));
        fake->reset(1);
        init(MeasMode::T2);
        if (row.hasStage) addMCountRate(nullptr, 1e6);
        std::vector<uint32_t> words(wordsOfBatch, t2Event(1, 5));
        std::fill_n(words.begin() + 50, row.invalid, t2Marker(20, 5));
        Finished ended;
        uint64_t fetched = 0;
        const auto fetch = [&] {
            uint64_t got = 0;
            ufGetBlock(nullptr, taken.data(), takenChannels.data(), &got);
            fetched += got;
        };
        ufStartBlock(nullptr, 250, 0, times.data(), channels.data(), blockSize, ended.get());
        for (uint32_t batch = 1; batch <= batches; ++batch) {
            fake->words(words.data(), words.size());
            ASSERT_TRUE(eventually([&] { return described("NumRecs") == batch * wordsOfBatch; }));
            if (batch % 4 == 0) fetch();
        }
        fake->number("CTCStatus", 0, 1);
        ASSERT_TRUE(ended.wait());
        fetch();
        tessel_losses losses{};
        losses.size = sizeof losses;
        ASSERT_TRUE(tessel_getLosses(nullptr, &losses));
        EXPECT_EQ(losses.verdict, row.verdict);
        EXPECT_EQ(losses.places[TESSEL_LOSS_INVALID].lost, row.invalid * batches);
        EXPECT_GT(losses.places[TESSEL_LOSS_UNFOLD_BLOCK].lost, 0u);
        for (const tessel_loss &loss : losses.places) fetched += loss.lost;
        EXPECT_EQ(fetched, batches * wordsOfBatch);
        clearManis(nullptr);
    }
}
