// Events in, counts out: which events count and in which bin, and that the fast loops say the same as the plain
// ones.
#include "measurements/histogram_count.h"
#include "support/simd_targets.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Tessel;
using namespace TestSupport;

namespace {

struct Events
{
    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;

    Events() = default;
    Events(std::initializer_list<std::pair<int, uint64_t>> events)
    {
        for (const auto &[channel, time] : events) append(static_cast<uint8_t>(channel), time);
    }
    void append(uint8_t channel, uint64_t time)
    {
        Times.push_back(time);
        Channels.push_back(channel);
    }
};

using Counts = std::vector<uint32_t>;

struct T2Result
{
    Counts Histo;
    uint64_t LastRefTime;

    bool operator==(const T2Result &) const = default;
};

std::ostream &operator<<(std::ostream &out, const T2Result &result)
{
    for (size_t i = 0; i < result.Histo.size(); ++i)
        if (result.Histo[i] != 0) out << fmt::format("[{}]={} ", i, result.Histo[i]);
    return out << "ref " << result.LastRefTime;
}

struct Settings
{
    uint8_t RefChan = 0;
    uint64_t BinWidth = 10, NumBins = 4, Rows = 3;
    uint64_t LastRefTime = 0;
};

// The array is exactly as large as it must be, for the address sanitizer to see; `elements` where it can't be.
T2Result runT2(decltype(&countT2) counter, const Events &events, const Settings &settings, size_t elements = 0)
{
    T2Result result{Counts(elements != 0 ? elements : settings.NumBins * settings.Rows), settings.LastRefTime};
    const T2Counting counting{result.LastRefTime, settings.RefChan, settings.BinWidth, settings.NumBins,
                              settings.Rows};
    counter(events.Times.data(), events.Channels.data(), events.Times.size(), result.Histo.data(), counting);
    return result;
}

Counts runT3(decltype(&countT3) counter, const Events &events, uint64_t numBins, uint64_t rows, size_t elements)
{
    Counts histo(elements);
    counter(events.Times.data(), events.Channels.data(), events.Times.size(), histo.data(), numBins, rows);
    return histo;
}

constexpr uint64_t sync(uint64_t number, uint64_t dtime)
{
    return number << 15 | dtime;
}

TEST(HistogramCount, T2CountsDistancesFromTheReference)
{
    const struct
    {
        const char *Name;
        Settings Set;
        Events In;
        Counts Expected; // rows of 4 bins
        uint64_t LastRefTime;
    } rows[] = {
        {"nothing before the first reference", {}, {{1, 5}, {2, 7}}, Counts(12), 0},
        {"the first reference only arms", {}, {{0, 100}}, Counts(12), 100},
        {"a reference at time 0 arms nothing", {}, {{0, 0}, {1, 5}}, Counts(12), 0},
        {"a reference counts its period", {}, {{0, 100}, {0, 125}}, {0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 125},
        {"first and last bin",
         {},
         {{0, 100}, {1, 100}, {1, 109}, {2, 110}, {2, 139}, {1, 140}},
         {0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0, 1},
         100},
        {"before the reference", {}, {{0, 100}, {1, 99}}, Counts(12), 100},
        {"the reference lasts from batch to batch",
         {.LastRefTime = 1000},
         {{2, 1015}},
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},
         1000},
        {"another reference channel",
         {.RefChan = 2},
         {{0, 50}, {2, 100}, {1, 105}, {0, 115}},
         {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0},
         100},
        {"markers, overflows and channels without a row",
         {.LastRefTime = 100},
         {{129, 101}, {255, 102}, {3, 103}, {128, 104}},
         Counts(12),
         100},
        {"a marker is no reference", {.RefChan = 129}, {{129, 100}, {1, 105}}, Counts(12), 0},
        {"a channel without a row is no reference", {.RefChan = 3}, {{3, 100}, {1, 105}}, Counts(12), 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.Name);
        const T2Result expected{row.Expected, row.LastRefTime};
        EXPECT_EQ(runT2(countT2, row.In, row.Set), expected);
        EXPECT_EQ(runT2(countT2Plain, row.In, row.Set), expected);
    }
}

TEST(HistogramCount, T2AgreesWithPlainLoop)
{
    std::mt19937_64 random(3);
    const Settings shapes[] = {
        {.BinWidth = 1, .NumBins = 100, .Rows = 5},
        {.RefChan = 3, .BinWidth = 7, .NumBins = 1000, .Rows = 5},
        {.RefChan = 2, .BinWidth = 64, .NumBins = 1, .Rows = 200, .LastRefTime = UINT64_MAX - 5000},
        {.BinWidth = 13, .NumBins = 0, .Rows = 5},
        {.BinWidth = 13, .NumBins = 10, .Rows = 0},
    };
    for (const Settings &shape : shapes)
        for (uint64_t count = 0; count < 2000; count = count * 2 + 1) {
            Events events;
            uint64_t time = shape.LastRefTime;
            for (uint64_t i = 0; i < count; ++i) {
                time += random() % 50;
                const bool outOfRow = random() % 4 == 0;
                events.append(static_cast<uint8_t>(random() % (outOfRow ? 256 : 5)), time - random() % 3);
            }
            ASSERT_EQ(runT2(countT2, events, shape), runT2(countT2Plain, events, shape))
                << "bin width " << shape.BinWidth << ", events " << count;
        }
}

// Distances the reciprocal can't take, or a product of width and bins beyond 64 bits.
TEST(HistogramCount, T2TakesAnyWidth)
{
    const struct
    {
        uint64_t BinWidth, NumBins, Time;
        uint64_t Bin; // of channel 0
    } rows[] = {
        {uint64_t{1} << 40, uint64_t{1} << 40, uint64_t{5} << 40, 4},
        {uint64_t{1} << 62, 4, UINT64_MAX, 3},
        {(uint64_t{1} << 62) - 1, 4, 3 * ((uint64_t{1} << 62) - 1), 2}, // the reciprocal would say 3
        {UINT64_MAX, 1, UINT64_MAX, 0},
        {UINT64_MAX, UINT64_MAX, UINT64_MAX, 0},
        {UINT64_MAX / 3, 4, UINT64_MAX, 2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(fmt::format("{} bins of {}", row.NumBins, row.BinWidth));
        const Settings settings{
            .RefChan = 1, .BinWidth = row.BinWidth, .NumBins = row.NumBins, .Rows = 1, .LastRefTime = 1};
        Counts expected(8);
        expected[row.Bin] = 1;
        EXPECT_EQ(runT2(countT2, {{0, row.Time}}, settings, 8).Histo, expected);
    }
}

TEST(HistogramCount, T3CountsDtimes)
{
    const Events events{{1, sync(9, 0)},     {1, sync(0, 3)}, {2, sync(1ull << 48, 3)}, {2, sync(1, 4)},
                        {0, sync(2, 32767)}, {3, sync(2, 1)}, {129, sync(2, 1)},        {255, sync(2, 0)}};
    const Counts fourBins = {0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 1};
    Events many; // enough for the loop over blocks
    for (int i = 0; i < 100; ++i)
        for (size_t k = 0; k < events.Times.size(); ++k) many.append(events.Channels[k], events.Times[k]);
    forEachSimdTarget([&] {
        EXPECT_EQ(runT3(countT3, events, 4, 3, 12), fourBins);
        Counts hundredfold = fourBins;
        for (uint32_t &element : hundredfold) element *= 100;
        EXPECT_EQ(runT3(countT3, many, 4, 3, 12), hundredfold);
        EXPECT_EQ(runT3(countT3, many, 32768, 1, 32768)[32767], 100u);
    });
}

TEST(HistogramCount, T3AgreesWithPlainLoop)
{
    std::mt19937_64 random(5);
    const struct
    {
        uint64_t NumBins, Rows;
        size_t Elements;
    } shapes[] = {{32768, 5, 5 * 32768},
                  {1000, 5, 5000},
                  {1, 65, 65},
                  {3, 128, 384},
                  {65536, 3, 3 * 65536},
                  {2, 400, 512}, // rows from 128 stay empty
                  {0, 5, 0},
                  {100, 0, 0},
                  {16777215, 1, 32768},
                  {16777216, 1, 32768},
                  {1ull << 40, 1, 32768},
                  {UINT64_MAX, 1, 32768}};
    for (const auto &shape : shapes)
        for (uint64_t count = 0; count < 1500; count += count < 300 ? 7 : 331) {
            Events events;
            for (uint64_t i = 0; i < count; ++i) {
                const auto channel = static_cast<uint8_t>(random() % (random() % 4 == 0 ? 256 : 5));
                events.append(channel, random() % 2 == 0 ? random() : sync(random(), random() % 4));
            }
            SCOPED_TRACE(fmt::format("{} x {}, {} events", shape.Rows, shape.NumBins, count));
            const Counts expected = runT3(countT3Plain, events, shape.NumBins, shape.Rows, shape.Elements);
            forEachSimdTarget([&] {
                ASSERT_EQ(runT3(countT3, events, shape.NumBins, shape.Rows, shape.Elements), expected);
            });
        }
}

} // namespace
