// A sequence: the result is given out and emptied step by step, and the run waits for the host after each.
#include "plain/stream.h"
#include "runs/curves.h"
#include "support/random_words.h"
#include "support/words.h"

#include <gtest/gtest.h>

using namespace Plain;
using namespace TestSupport;

namespace {

struct Mode
{
    const char *name;
    int32_t mode; // 1 by time (s), 2 by count
    double value;
};

} // namespace

TEST(Sequence, OfPairs)
{
    for (const Mode &given : {Mode{"by count", 2, 100}, Mode{"by time", 1, 100e-9}}) { // 1 ns a pair
        SCOPED_TRACE(given.name);
        Host host;
        std::vector<uint32_t> words;
        for (uint32_t i = 1; i < 1000; ++i)
            words.insert(words.end(), {t2Sync(i * 200), t2Event(0, i * 200 + 6), t2Event(1, i * 200 + 9)});
        ASSERT_FALSE(host.open(TgxFile::t2(3, 5), words).empty());
        setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 10, 10, 10, 10);
        setSequenceMode(given.mode, 1, given.value);
        Counts counts(10, 10);
        Finished finished;
        get2dHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        EXPECT_EQ(takeSteps([&] { EXPECT_NEAR(static_cast<double>(counts.sum()), 100, 1); }), 9u);
        EXPECT_TRUE(finished.isSet());
    }
}

// Each step of a trace holds what was counted since the one before; the last comes with the end.
TEST(Sequence, OfATrace)
{
    constexpr uint64_t eventPs = 10'000, events = 10'000;
    const struct
    {
        Mode mode;
        size_t steps;
    } cases[] = {{{"by count", 2, 1000}, 10}, {{"by time", 1, 1000 * 1e-8}, 10}};
    for (const auto &given : cases) {
        SCOPED_TRACE(given.mode.name);
        Host host;
        std::vector<uint32_t> words(events);
        for (size_t i = 0; i < events; ++i) words[i] = t2Event(0, static_cast<uint32_t>(i * eventPs / 1000));
        ASSERT_FALSE(host.open(TgxFile::t2(1, 1000), words).empty());
        setTimeTraceNumBins(nullptr, 1000);
        setTimeTraceHistorySize(nullptr, 100e-6); // 10 events a bin
        setSequenceMode(given.mode.mode, 1, given.mode.value);
        Counts counts(2, 1000);
        Finished finished;
        getTimeTrace(nullptr, 0, 0, 0, counts.data.data(), nullptr, finished.get());
        uint64_t counted = 0;
        EXPECT_EQ(takeSteps([&] { counted += counts.sum(); }), given.steps);
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(counted, events);
    }
}

// Pairs of an event with those of a step before it count in its own step: together the steps hold every pair.
TEST(Sequence, OfG2HoldsEveryPairOnce)
{
    const auto words = randomWords({60'000, false, 0.0005, 4, 5});
    const CorrelationSettings settings{.windowPs = 200'000, .binWidthPs = 10'000, .normalize = false};
    ReferenceCorrelation reference(settings);
    for (const Event &event : decodeT2(words, 4, 5)) reference.add(event.time, event.channel);
    const auto whole = reference.curves();
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2(4, 5), words).empty());
    for (const Mode &given : {Mode{"by time", 1, 1e-4}, Mode{"by count", 2, 25}}) {
        SCOPED_TRACE(given.name);
        setSequenceMode(given.mode, 1, given.value);
        Curves curves(settings);
        std::fill(curves.y.begin(), curves.y.end(), 0.0);
        std::vector<double> sum(whole.size());
        getCorrelation(nullptr, 0, 0, 0, curves.y.data(), curves.x.data(), curves.finished.get());
        const size_t steps = takeSteps([&] {
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += curves.y[i];
        });
        EXPECT_TRUE(curves.finished.wait());
        EXPECT_EQ(sum, whole);
        EXPECT_GT(steps, 5u);
    }
}

// A step of FCS ends with the event after SequenceCount further ones, whatever they are.
TEST(Sequence, OfFcsCountsEventsOfAllKinds)
{
    const auto words = randomWords({30'000, true, 0.05, 4, 6});
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t3(4, 5), words).empty());
    setSequenceMode(2, 1, 5000);
    Curves curves(
        {.mode = CorrelationSettings::Mode::FFCS, .windowPs = 10'000'000, .minLagPs = 1000, .steps = 10});
    getCorrelation(nullptr, 0, 0, 0, curves.y.data(), nullptr, curves.finished.get());
    EXPECT_EQ(takeSteps([] {}), (decodeT3(words, 4).size() - 1) / 5000 + 1);
    EXPECT_TRUE(curves.finished.wait());
}

TEST(Sequence, AStageThatComesDuringItLeavesTheCallersArray)
{
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2(3, 1000), randomWords({200'000, false, 0.07, 3, 3})).empty());
    setTimeTraceNumBins(nullptr, 100);
    setTimeTraceHistorySize(nullptr, 1500);
    setSequenceMode(1, 1, 100);
    Counts counts(4, 100); // no row for the new channel
    Finished finished;
    getTimeTrace(nullptr, 0, 0, 0, counts.data.data(), nullptr, finished.get());
    ASSERT_EQ(waitNewData(nullptr), 1);
    const auto before = counts.data;
    const int32_t members[] = {1, 2};
    EXPECT_GE(addMMerge(nullptr, members, 2, 1), 0);
    do gotNewData(nullptr);
    while (waitNewData(nullptr));
    EXPECT_TRUE(finished.wait());
    EXPECT_EQ(counts.data, before);
}
