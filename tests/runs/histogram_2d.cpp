// Two-dimensional histograms of whole replays, through tessel.h, against a reference written apart.
#include "support/host.h"
#include "support/random_words.h"
#include "support/reference_measurements.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t channels = 3;
constexpr uint64_t resolution = 5;

void set(const PairSettings &settings)
{
    EXPECT_TRUE(setHisto2dParams(nullptr, settings.start, settings.x, settings.y, settings.offsetX,
                                 settings.offsetY, settings.widthX, settings.widthY, settings.binsX,
                                 settings.binsY));
    EXPECT_TRUE(setHisto2dTotMode(nullptr, settings.tot, settings.slope));
    EXPECT_TRUE(setHisto2dRecoveryTimingCorrection(nullptr, settings.recoveryMin, settings.recoveryMax,
                                                   settings.recoveryOffsetX, settings.recoveryOffsetY,
                                                   settings.recoverySlope));
}

struct PairRun
{
    const char *name;
    bool t3;
    size_t words;
    PairSettings settings;
};

std::string open(Host &host, bool t3, const std::vector<uint32_t> &words)
{
    auto file = t3 ? TgxFile::t3(channels, 4, 80e6) : TgxFile::t2(channels, resolution);
    return host.open(file, words);
}

} // namespace

TEST(Histogram2d, CountsAsTheReferenceDoes)
{
    const uint64_t second = 1'000'000'000'000;
    const PairRun rows[] = {
        {"T2", false, 300'000, {.widthX = 20'000'000, .widthY = 30'000'000}},
        {"T2 sheared",
         false,
         300'000,
         {.start = 3, .offsetX = 1000, .widthX = 10'000'000, .widthY = 30'000'000, .binsX = 50, .slope = 0.3}},
        {"T2 over threshold in chunks",
         false,
         1'200'000,
         {.tot = true, .widthX = 20'000'000, .widthY = 3'000'000, .binsX = 30, .binsY = 400}},
        {"T2 in recovery",
         false,
         300'000,
         {.widthX = 20'000'000,
          .widthY = 30'000'000,
          .recoveryMin = 50'000'000,
          .recoveryMax = second,
          .recoveryOffsetX = 3'000'000,
          .recoverySlope = -0.1}},
        {"T3", true, 300'000, {.widthX = 1310, .widthY = 1000, .binsY = 132}},
        {"T3 over threshold, sheared",
         true,
         1'200'000,
         {.tot = true, .widthX = 700, .widthY = 900, .slope = 0.5}},
        {"empty", true, 0, {}},
    };
    for (const PairRun &given : rows) {
        SCOPED_TRACE(given.name);
        Host host;
        auto words = randomWords({given.words, given.t3, given.t3 ? 0.02 : 0.07, channels, 41});
        ASSERT_FALSE(open(host, given.t3, words).empty());
        set(given.settings);
        const Events events = given.t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution);
        const auto expected = pairHistogram(events, channels + 1, given.settings, {given.t3, 12'500, 4});

        Counts counts(given.settings.binsY, given.settings.binsX);
        if (given.words) {
            EXPECT_GT(std::accumulate(expected.begin(), expected.end(), 0u), given.words / 1000);
        }
        Finished finished;
        EXPECT_TRUE(get2dHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_TRUE(counts.data == expected);
        EXPECT_EQ(host.logged("overrun"), 0u);
    }
}

TEST(Histogram2d, ParametersThatCantBeMeasuredWith)
{
    const struct
    {
        const char *name;
        uint64_t widthX, widthY, binsX, binsY;
        const char *logged;
    } rows[] = {
        {"x width 0", 0, 1, 10, 10, "bin width of 0 ps"},
        {"y width 0", 1, 0, 10, 10, "bin width of 0 ps"},
        {"no columns", 1, 1, 0, 10, "without bins"},
        {"no rows", 1, 1, 10, 0, "without bins"},
        {"a product beyond 64 bits", 1, 1, uint64_t{1} << 40, uint64_t{1} << 40, "too many bins!"},
        {"a product that wraps to little", 1, 1, uint64_t{1} << 63, 2, "too many bins!"},
        {"beyond all memory", 1, 1, uint64_t{1} << 31, 2, "too many bins!"},
    };
    Host host;
    ASSERT_FALSE(open(host, false, randomWords({1000, false, 0.07, channels})).empty());
    for (const auto &given : rows) {
        SCOPED_TRACE(given.name);
        setHisto2dParams(nullptr, 0, 1, 2, 0, 0, given.widthX, given.widthY, given.binsX, given.binsY);
        Finished finished;
        Counts counts(10, 10);
        const size_t before = host.logged(given.logged);
        EXPECT_TRUE(get2dHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(counts.at(9, 9), given.widthX && given.widthY ? 0xDEADBEEF : 0u); // emptied if it has a size
        EXPECT_EQ(host.logged(given.logged), before + 1);
    }
    setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 1'000'000, 1'000'000, 10, 10);
    EXPECT_TRUE(get2dHistogram(nullptr, 0, 1, 0, nullptr, nullptr));
}

TEST(Histogram2d, StepsOfASequence)
{
    const struct
    {
        const char *name;
        int32_t mode;
        double value;
        uint64_t steps;
    } rows[] = {{"by count", 2, 100, 9}, {"by time", 1, 100e-9, 9}}; // 1 ns a pair
    for (const auto &given : rows) {
        SCOPED_TRACE(given.name);
        Host host;
        std::vector<uint32_t> words;
        for (uint32_t i = 1; i < 1000; ++i)
            words.insert(words.end(), {t2Sync(i * 200), t2Event(0, i * 200 + 6), t2Event(1, i * 200 + 9)});
        ASSERT_FALSE(open(host, false, words).empty());
        setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 10, 10, 10, 10);
        setSequenceMode(given.mode, 1, given.value);
        Counts counts(10, 10);
        Finished finished;
        get2dHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        EXPECT_EQ(takeSteps([&] { EXPECT_NEAR(static_cast<double>(counts.sum()), 100, 1); }), given.steps);
        EXPECT_TRUE(finished.isSet());
    }
}
