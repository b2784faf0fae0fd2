// Events in, counts of pairs out: which pairs count and in which bin, as a direct reading says.
#include "measurements/histogram_2d_count.h"

#include "support/reference_measurements.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr uint64_t periodPs = 100'000;
constexpr double resolution = 4.9; // cut to 4

T3Time t3Time()
{
    const StreamFacts facts{.Mode = MeasMode::T3, .SyncPeriodPs = periodPs, .Resolution = resolution};
    return T3Time(facts);
}

PairRules rulesOf(const PairSettings &settings)
{
    Histo2dParams params;
    params.H2dStartChan = settings.start;
    params.H2dTotMode = settings.tot;
    params.H2dChanX = settings.x;
    params.H2dChanY = settings.y;
    params.H2dOffsetX = settings.offsetX;
    params.H2dOffsetY = settings.offsetY;
    params.H2dBinWidthX = settings.widthX;
    params.H2dBinWidthY = settings.widthY;
    params.H2dNumBinsX = settings.binsX;
    params.H2dNumBinsY = settings.binsY;
    params.H2dRecoveryMin = settings.recoveryMin;
    params.H2dRecoveryMax = settings.recoveryMax;
    params.H2dRecoveryOffsetX = settings.recoveryOffsetX;
    params.H2dRecoveryOffsetY = settings.recoveryOffsetY;
    params.H2dSlope = settings.slope;
    params.H2dRecoverySlope = settings.recoverySlope;
    return {params, static_cast<uint64_t>(resolution)};
}

using Counts = std::vector<uint32_t>;

// Counts in pieces of at most `largestPiece` events.
template <class Time>
Counts countPairs(const Events &events, const Time &time, size_t rows, const PairSettings &settings,
                  size_t largestPiece, std::mt19937_64 &random)
{
    std::vector<uint64_t> times;
    std::vector<uint8_t> channels;
    for (const auto &[when, channel] : events) {
        times.push_back(when);
        channels.push_back(channel);
    }
    Counts counts(settings.binsX * settings.binsY);
    const PairRules rules = rulesOf(settings);
    PairSearch search;
    for (size_t at = 0; at < events.size();) {
        const size_t size = std::min<size_t>(1 + random() % largestPiece, events.size() - at);
        histogram2dCount(search, rules, time, times.data() + at, channels.data() + at, size, rows,
                         counts.data());
        at += size;
    }
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

struct PairCase
{
    const char *name;
    PairSettings settings;
    Events events; // of 3 rows
    std::string expected;
};

template <class Time>
void expectCounts(const std::vector<PairCase> &cases, const Time &time)
{
    std::mt19937_64 random(1);
    for (const PairCase &given : cases) {
        SCOPED_TRACE(given.name);
        for (const size_t largestPiece : {size_t{1}, size_t{1000}})
            EXPECT_EQ(show(countPairs(given.events, time, 3, given.settings, largestPiece, random)),
                      given.expected);
    }
}

// 10 bins of 10 ps a row, 5 rows of 20 ps; the first pairs have no reference before them.
PairSettings small()
{
    return {.widthX = 10, .widthY = 20, .binsX = 10, .binsY = 5};
}

PairSettings with(void (*change)(PairSettings &))
{
    PairSettings settings = small();
    change(settings);
    return settings;
}

TEST(Histogram2dCount, T2PairsAfterAReference)
{
    const Event start{1000, 0}, x{1035, 1}, y{1050, 2}, next{1090, 0};
    expectCounts(
        {
            {"counted by the event behind it", small(), {start, x, y}, ""},
            {"once by the next reference", small(), {start, x, y, next}, "23:1 "},
            {"again by each event until then", small(), {start, x, y, {1051, 2}, {1052, 2}, next}, "23:3 "},
            {"whatever their order", small(), {start, {1010, 2}, x, next}, "3:1 "},
            {"not across a reference", small(), {start, x, {1040, 0}, y, next}, ""},
            {"not without a reference", small(), {x, y, next}, ""},
            {"passed-over events count nothing",
             small(),
             {start, x, y, {1060, 3}, {1060, 129}, {1060, 255}},
             ""},
            {"time over threshold", with([](auto &s) { s.tot = true; }), {start, x, {1065, 2}, next}, "13:1 "},
            {"over threshold, y before x",
             with([](auto &s) { s.tot = true; }),
             {start, {1010, 2}, x, next},
             ""},
            {"offsets are taken off",
             with([](auto &s) { s.offsetX = 30, s.offsetY = 50; }),
             {start, x, y, next},
             "0:1 "},
            {"an offset beyond the time", with([](auto &s) { s.offsetX = 36; }), {start, x, y, next}, ""},
            {"last bins", small(), {start, {1099, 1}, {1099, 2}, {2000, 0}}, "49:1 "},
            {"behind the last x", small(), {start, {1100, 1}, {1099, 2}, {2000, 0}}, ""},
            {"behind the last y", small(), {start, {1099, 1}, {1100, 2}, {2000, 0}}, ""},
            {"one channel for all", with([](auto &s) { s.x = s.y = 0; }), {start, {1050, 0}}, "0:1 "},
        },
        T2Time());
}

TEST(Histogram2dCount, T2SlopesAndRecovery)
{
    const Events pair{{1000, 0}, {1035, 1}, {1050, 2}, {1090, 0}}; // x 35, y 50, 1000 after nothing
    expectCounts(
        {
            {"sheared", with([](auto &s) { s.slope = 0.5; }), pair, "26:1 "},
            {"sheared below zero", with([](auto &s) { s.slope = -0.89; }), pair, "20:1 "},
            {"sheared out", with([](auto &s) { s.slope = -0.9; }), pair, ""},
            {"no number", with([](auto &s) { s.slope = std::nan(""); }), pair, ""},
            {"infinite", with([](auto &s) { s.slope = std::numeric_limits<double>::infinity(); }), pair, ""},
            {"too early", with([](auto &s) { s.recoveryMin = 1001, s.recoveryOffsetX = 20; }), pair, "25:1 "},
            {"just in time", with([](auto &s) { s.recoveryMin = 1000, s.recoveryOffsetX = 20; }), pair,
             "23:1 "},
            {"too late", with([](auto &s) { s.recoveryMax = 999, s.recoveryOffsetY = 20; }), pair, "33:1 "},
            {"slopes add up", with([](auto &s) { s.recoveryMax = 999, s.slope = 0.4, s.recoverySlope = 0.2; }),
             pair, "26:1 "},
        },
        T2Time());
}

TEST(Histogram2dCount, T3PairsOfOneSyncPeriod)
{
    const Event x{sync(5, 9), 1}, y{sync(5, 12), 2}, next{sync(9, 1), 2}; // x 36 ps, y 48 ps
    expectCounts(
        {
            {"counted by the event behind it", small(), {x, y, next}, "23:1 "},
            {"once", small(), {x, y, next, {sync(10, 1), 0}}, "23:1 "},
            {"not of two periods", small(), {x, {sync(6, 12), 2}, next, next}, ""},
            {"passed-over events count nothing", small(), {x, y, {sync(6, 1), 129}, {sync(6, 1), 255}}, ""},
            {"time over threshold", with([](auto &s) { s.tot = true; }), {x, {sync(5, 17), 2}, next}, "13:1 "},
            {"offsets are taken off",
             with([](auto &s) { s.offsetX = 30, s.offsetY = 40; }),
             {x, y, next},
             "0:1 "},
            {"too early",
             with([](auto &s) { s.recoveryMin = 500'001, s.recoveryOffsetX = 20; }),
             {x, y, next},
             "25:1 "},
        },
        t3Time());
}

PairSettings randomSettings(std::mt19937_64 &random)
{
    const uint64_t widths[] = {1, 3, 10, 64, 997};
    const double slopes[] = {0, 0, 0.37, -0.2, 3.0, 1e-9};
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
    settings.slope = slopes[random() % 6];
    settings.recoverySlope = slopes[random() % 6];
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
        const size_t rows = 3 + random() % 3, largestPiece = 1 + random() % 3000;
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
