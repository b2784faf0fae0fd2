// Whole replays into correlations, through tessel.h, against a reference written apart.
#include "runs/curves.h"
#include "support/reference.h"
#include "support/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace TestSupport;

namespace {

using Mode = CorrelationSettings::Mode;

constexpr int channels = 4;
constexpr uint64_t resolutionPs = 5, periodPs = 12'500;

// Light in bursts on four inputs, with syncs (T2), markers and overflows; a pause beyond most windows.
std::vector<uint32_t> burstWords(size_t count, bool t3, uint32_t seed)
{
    const uint64_t wrap = t3 ? 1 << 10 : 1 << 25;
    std::mt19937 random(seed);
    std::vector<uint32_t> words;
    uint64_t now = 0, wraps = 0;
    for (size_t i = 0; i < count; ++i) {
        now += random() % (random() % 8 == 0 ? 4000 : 60);
        if (i == count / 2) now += 40 * wrap;
        for (uint64_t left = now / wrap - wraps; left > 0; left = now / wrap - wraps) {
            auto step = static_cast<uint32_t>(std::min<uint64_t>(left, 3));
            words.push_back(t3 ? t3Overflow(step) : t2Overflow(step));
            wraps += step;
        }
        auto low = static_cast<uint32_t>(now % wrap), channel = static_cast<uint32_t>(random() % channels);
        if (random() % 50 == 0)
            words.push_back(t3 ? t3Marker(1 + random() % 4, low, 0) : t2Marker(1 + random() % 4, low));
        else if (!t3 && random() % 10 == 0)
            words.push_back(t2Sync(low));
        else
            words.push_back(t3 ? t3Event(channel, low, random() % 2500) : t2Event(channel, low));
    }
    return words;
}

Events decoded(const std::vector<uint32_t> &words, bool t3)
{
    if (!t3) return decodeT2(words, channels, resolutionPs);
    Events events = decodeT3(words, channels);
    for (Event &event : events) event.time = event.time / 32768 * periodPs + event.time % 32768 * resolutionPs;
    return events;
}

std::string open(Host &host, const std::vector<uint32_t> &words, bool t3)
{
    return host.open(t3 ? TgxFile::t3(channels, resolutionPs) : TgxFile::t2(channels, resolutionPs), words);
}

struct RunCase
{
    const char *name;
    bool t3;
    CorrelationSettings settings;
    bool merged = false; // inputs 1 and 2 as channel 5
};

void PrintTo(const RunCase &given, std::ostream *out)
{
    *out << given.name;
}

class Correlation : public testing::TestWithParam<RunCase>
{
};

} // namespace

TEST_P(Correlation, IsThatOfTheReference)
{
    const RunCase &given = GetParam();
    Host host;
    const auto words = burstWords(150'000, given.t3, 23);
    ASSERT_FALSE(open(host, words, given.t3).empty());
    Events events = decoded(words, given.t3);
    if (given.merged) {
        const int32_t members[] = {1, 2};
        ASSERT_EQ(addMMerge(nullptr, members, 2, 1), 5);
        events = merge(events, {1, 2}, 5, true);
    }
    ReferenceCorrelation reference(given.settings);
    for (const Event &event : events) reference.add(event.time, event.channel);

    Curves curves(given.settings);
    curves.run();
    const auto x = reference.axis(), y = reference.curves();
    ASSERT_EQ(curves.xSize, x.size());
    ASSERT_EQ(curves.ySize, y.size());
    for (size_t i = 0; i < x.size(); ++i) ASSERT_DOUBLE_EQ(curves.x[i], x[i]) << i;
    const bool isG2 = given.settings.mode == Mode::G2;
    for (size_t i = 0; i < y.size(); ++i) {
        bool isUnused = !isG2 && i % (x.size() + 1) == x.size();
        ASSERT_EQ(curves.y[i], isUnused ? untouched : y[i]) << i;
    }
    EXPECT_GT(reference.counts[0], 1000u);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Correlation,
    testing::Values(
        RunCase{"g2", false, {.windowPs = 50'000, .binWidthPs = 50}},
        RunCase{"g2Counts", false, {.windowPs = 5000, .binWidthPs = 5, .normalize = false}},
        RunCase{"g2Auto", false, {.chan1 = 3, .chan2 = 3, .windowPs = 20'000, .binWidthPs = 30}},
        RunCase{"g2AutoCounts", true, {.chan2 = 1, .windowPs = 200'000, .binWidthPs = 500, .normalize = false}},
        RunCase{"g2Sync", false, {.chan1 = 0, .windowPs = 20'000, .binWidthPs = 20}},
        RunCase{"g2T3", true, {.windowPs = 300'000, .binWidthPs = 100}},
        RunCase{"g2Merged", true, {.chan1 = 5, .windowPs = 300'000, .binWidthPs = 100}, true},
        RunCase{"fcs", false, {.mode = Mode::FCS, .windowPs = 10'000'000, .minLagPs = 100}},
        RunCase{"fcsAuto",
                false,
                {.mode = Mode::FCS, .chan2 = 1, .windowPs = 3'000'000, .minLagPs = 1000, .steps = 25}},
        RunCase{"fcsT3", true, {.mode = Mode::FCS, .windowPs = 30'000'000, .minLagPs = 5000}},
        RunCase{"fcsMerged",
                true,
                {.mode = Mode::FCS, .chan1 = 5, .chan2 = 3, .windowPs = 30'000'000, .minLagPs = 5000},
                true},
        RunCase{"ffcs", false, {.mode = Mode::FFCS, .windowPs = 10'000'000, .minLagPs = 100}},
        RunCase{"ffcsT3", true, {.mode = Mode::FFCS, .windowPs = 30'000'000, .minLagPs = 5000}},
        RunCase{"ffcsMerged",
                true,
                {.mode = Mode::FFCS, .chan1 = 5, .chan2 = 5, .windowPs = 30'000'000, .minLagPs = 5000},
                true}),
    [](const auto &given) { return given.param.name; });

TEST(CorrelationRun, WithoutAResultTheArraysStayAsTheyAre)
{
    const struct
    {
        const char *name;
        CorrelationSettings settings;
    } cases[] = {
        {"channels without events", {.chan1 = 60, .chan2 = 300}},
        {"a window below the bin width", {.windowPs = 20, .binWidthPs = 100}},
        {"a longest lag below the shortest", {.mode = Mode::FCS, .windowPs = 100, .minLagPs = 1000}},
        {"a longest lag beyond the stream", {.mode = Mode::FFCS, .windowPs = uint64_t{1} << 60, .steps = 9}},
    };
    Host host;
    ASSERT_FALSE(open(host, burstWords(20'000, false, 3), false).empty());
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Curves curves(given.settings);
        curves.run();
        EXPECT_EQ(curves.y, std::vector<double>(curves.y.size(), untouched));
    }
    Finished finished;
    setG2Params(nullptr, 1, 2, NAN, INFINITY, 1);
    EXPECT_TRUE(getCorrelation(nullptr, 0, 1, 0, nullptr, nullptr, finished.get()));
    EXPECT_TRUE(finished.isSet());
    EXPECT_TRUE(setFCSParams(nullptr, 1, 2, nullptr, -INFINITY, INFINITY, UINT64_MAX));
    EXPECT_TRUE(setFFCSParams(nullptr, 1, 2, nullptr, NAN, 1e300, 0));
    EXPECT_EQ(host.logged("ERR"), 0u);
}

TEST(CorrelationRun, ClearEmptiesTheCurves)
{
    Host host;
    ASSERT_FALSE(open(host, burstWords(20'000, false, 4), false).empty());
    for (Mode mode : {Mode::G2, Mode::FCS}) {
        Curves curves({.mode = mode, .windowPs = 1'000'000, .binWidthPs = 1000, .steps = 12});
        curves.run();
        EXPECT_NE(curves.y[curves.ySize / 2], 0.0);
        EXPECT_TRUE(clearMeasure(nullptr));
        for (size_t i = 0; i < curves.y.size(); ++i) EXPECT_EQ(curves.y[i], i < curves.ySize ? 0.0 : untouched);
    }
}

// Pairs of an event with those of a step before it count in its own step: together the steps hold every pair.
TEST(CorrelationRun, TheStepsOfASequenceHoldEveryPairOnce)
{
    const struct
    {
        const char *name;
        int32_t mode;
        double value;
    } cases[] = {{"by time", 1, 1e-3}, {"by count", 2, 25}};
    const auto words = burstWords(60'000, false, 5);
    const CorrelationSettings settings{.windowPs = 20'000, .binWidthPs = 1000, .normalize = false};
    ReferenceCorrelation reference(settings);
    for (const Event &event : decoded(words, false)) reference.add(event.time, event.channel);
    const auto whole = reference.curves();
    Host host;
    ASSERT_FALSE(open(host, words, false).empty());
    for (const auto &given : cases) {
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
    setSequenceMode(0, 0, 0);
}

// A step of FCS ends with the event after SequenceCount further ones, whatever they are.
TEST(CorrelationRun, ASequenceOfFcsCountsEventsOfAllKinds)
{
    const auto words = burstWords(30'000, true, 6);
    Host host;
    ASSERT_FALSE(open(host, words, true).empty());
    setSequenceMode(2, 1, 5000);
    Curves curves({.mode = Mode::FFCS, .windowPs = 10'000'000, .minLagPs = 1000, .steps = 10});
    getCorrelation(nullptr, 0, 0, 0, curves.y.data(), nullptr, curves.finished.get());
    EXPECT_EQ(takeSteps([] {}), (decoded(words, true).size() - 1) / 5000 + 1);
    EXPECT_TRUE(curves.finished.wait());
    setSequenceMode(0, 0, 0);
}
