// Events in, counts of pairs out: which pairs count and in which bin, as a direct reading says.
#include "measurements/histogram_2d_count.h"

#include "measurements/streamed.h"
#include "plain/measurements.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Tessel;
using namespace Plain;
using namespace TestSupport;

namespace {

constexpr uint64_t periodPs = 100'000;
constexpr double resolution = 4.9; // cut to 4

T3Time t3Time()
{
    const StreamFacts facts{.Mode = MeasMode::T3, .SyncPeriodPs = periodPs, .Resolution = resolution};
    return T3Time(facts);
}

using Counts = std::vector<uint32_t>;

// Counts in pieces of at most `largestPiece` events.
template <class Time>
Counts countPairs(const Events &events, const Time &time, size_t rows, const PairSettings &settings,
                  size_t largestPiece, std::mt19937_64 &random)
{
    Counts counts(settings.binsX * settings.binsY);
    const Histo2dParams params{settings.start,
                               settings.tot,
                               settings.x,
                               settings.y,
                               settings.offsetX,
                               settings.offsetY,
                               settings.widthX,
                               settings.widthY,
                               settings.binsX,
                               settings.binsY,
                               settings.recoveryMin,
                               settings.recoveryMax,
                               settings.recoveryOffsetX,
                               settings.recoveryOffsetY,
                               settings.slope,
                               settings.recoverySlope};
    const PairRules rules{params, static_cast<uint64_t>(resolution)};
    PairSearch search;
    Streamed(events).inPieces(largestPiece, random, [&](auto times, auto channels, size_t count) {
        histogram2dCount(search, rules, time, times, channels, count, rows, counts.data());
    });
    return counts;
}

uint64_t sync(uint64_t number, uint64_t dtime)
{
    return number << 15 | dtime;
}

// Element -> count of those that aren't 0.
std::string show(const Counts &counts)
{
    std::string text;
    for (size_t i = 0; i < counts.size(); ++i)
        if (counts[i] != 0) text += fmt::format("{}:{} ", i, counts[i]);
    return text;
}

PairSettings randomSettings(std::mt19937_64 &random)
{
    const uint64_t widths[] = {1, 3, 10, 64, 997};
    const double slopes[] = {0.37, -0.2, -1, 3, 1e-9, std::nan(""), std::numeric_limits<double>::infinity()};
    const auto slope = [&] { return random() % 2 == 0 ? 0 : slopes[random() % 7]; };
    PairSettings settings;
    settings.start = static_cast<uint8_t>(random() % 4);
    settings.x = static_cast<uint8_t>(random() % 5);
    settings.y = static_cast<uint8_t>(random() % 5);
    settings.tot = random() % 3 == 0;
    settings.offsetX = random() % 3 == 0 ? random() % 100 : 0;
    settings.offsetY = random() % 3 == 0 ? random() % 100 : 0;
    settings.widthX = widths[random() % 5];
    settings.widthY = widths[random() % 5];
    settings.binsX = 1 + random() % 90;
    settings.binsY = 1 + random() % 90;
    settings.recoveryMin = random() % 2 == 0 ? random() % 500 : 0;
    settings.recoveryMax = random() % 2 == 0 ? 500 + random() % 5000 : 1'000'000'000'000;
    settings.recoveryOffsetX = random() % 100;
    settings.recoveryOffsetY = random() % 100;
    settings.slope = slope();
    settings.recoverySlope = slope();
    return settings;
}

Events randomEvents(std::mt19937_64 &random, bool t3, size_t count)
{
    Events events;
    uint64_t time = 0;
    for (size_t i = 0; i < count; ++i) {
        time += t3 ? random() % 2 : random() % 150;
        if (random() % 500 == 0) time += t3 ? 100 : 100'000;
        const uint64_t kind = random() % 100;
        const auto channel =
            kind < 5 ? static_cast<uint8_t>(128 + random() % 128) : static_cast<uint8_t>(random() % 5);
        events.push_back({t3 ? sync(time, random() % 500) : time, channel});
    }
    return events;
}

TEST(Histogram2dCount, AgreesWithADirectReading)
{
    std::mt19937_64 random(3);
    uint64_t counted = 0;
    for (int turn = 0; turn < 400; ++turn) {
        const bool t3 = turn % 2 == 1;
        const PairSettings settings = randomSettings(random);
        const Events events = randomEvents(random, t3, 4000);
        const size_t rows = 3 + random() % 3, largestPiece = random() % 3 == 0 ? 2 : 3000;
        SCOPED_TRACE(fmt::format("turn {}: {} of {} and {} of {} bins", turn, settings.x, settings.binsX,
                                 settings.y, settings.binsY));
        const Counts expected = pairHistogram(events, rows, settings, {t3, periodPs, resolution});
        ASSERT_EQ(show(t3 ? countPairs(events, t3Time(), rows, settings, largestPiece, random)
                          : countPairs(events, T2Time(), rows, settings, largestPiece, random)),
                  show(expected));
        for (const uint32_t count : expected) counted += count;
    }
    EXPECT_GT(counted, 50'000u); // the streams do have pairs
}

// A quotient of doubles goes wrong first next to the edge of a bin, an integer one never.
TEST(Histogram2dCount, BinEdgesAreExact)
{
    std::mt19937_64 random(1);
    for (const uint64_t width :
         {3ull, 10ull, 997ull, 4096ull, 1'000'000'007ull, (1ull << 45) - 1, (1ull << 50) + 1})
        for (const uint64_t bin : {0u, 1u, 5u, 6u}) {
            SCOPED_TRACE(fmt::format("bin {} of {}", bin, width));
            const PairSettings settings{.widthX = width, .widthY = width, .binsX = 7, .binsY = 7};
            const uint64_t edge = bin * width, start = 1000;
            for (const uint64_t delay : {edge, edge + width - 1}) {
                const Events events{{start, 0}, {start + delay, 1}, {start + delay, 2}, {UINT64_MAX - 1, 0}};
                EXPECT_EQ(show(countPairs(events, T2Time(), 3, settings, 9, random)),
                          fmt::format("{}:1 ", bin * 8));
            }
        }
    // Sheared, bin 0 begins behind -1.
    const Events pair{{1000, 0}, {1040, 1}, {1050, 2}, {1090, 0}};
    PairSettings settings{.widthX = 10, .widthY = 20, .binsX = 10, .binsY = 5};
    for (const auto &[slope, counted] : {std::pair(-0.98, "20:1 "), {-1.0, ""}}) {
        settings.slope = slope;
        EXPECT_EQ(show(countPairs(pair, T2Time(), 3, settings, 9, random)), counted);
    }
}

// Products beyond 64 bits and widths beyond the doubles' exact numbers.
TEST(Histogram2dCount, HugeWidthsAgreeWithADirectReading)
{
    std::mt19937_64 random(9);
    for (const uint64_t width : {uint64_t{1} << 53, (uint64_t{1} << 60) + 1, UINT64_MAX}) {
        const PairSettings settings{.widthX = width, .widthY = width, .binsX = 16, .binsY = 16};
        Events events;
        for (int i = 0; i < 2000; ++i) events.push_back({random(), static_cast<uint8_t>(random() % 3)});
        EXPECT_EQ(show(countPairs(events, T2Time(), 3, settings, 100, random)),
                  show(pairHistogram(events, 3, settings, {})));
    }
}

} // namespace
