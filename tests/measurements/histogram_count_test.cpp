// Events in, counts out: which events count and in which bin, by the fast loops and by the plain ones.
#include "measurements/histogram_count.h"
#include "measurements/streamed.h"
#include "support/simd_targets.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

using Counts = std::vector<uint32_t>;

struct Settings
{
    uint8_t RefChan = 0;
    uint64_t BinWidth = 10, NumBins = 4, Rows = 3;
    uint64_t Start = 0; // time of the first event, which is on RefChan; at 0 it isn't taken for a reference
};

// The array is exactly as large as it must be, for the address sanitizer to see; `elements` where it can't be.
// The reference lasts from piece to piece.
Counts runT2(decltype(&countT2) counter, const Events &events, const Settings &settings, size_t elements)
{
    std::mt19937_64 random(events.size());
    Counts histo(elements);
    uint64_t lastRefTime = 0;
    const T2Counting counting{lastRefTime, settings.RefChan, settings.BinWidth, settings.NumBins,
                              settings.Rows};
    Streamed(events).inPieces(1 + random() % 2000, random, [&](auto times, auto channels, size_t count) {
        counter(times, channels, count, histo.data(), counting);
    });
    return histo;
}

Counts runT3(decltype(&countT3) counter, const Streamed &in, uint64_t numBins, uint64_t rows, size_t elements)
{
    Counts histo(elements);
    counter(in.times.data(), in.channels.data(), in.times.size(), histo.data(), numBins, rows);
    return histo;
}

TEST(HistogramCount, T2CountsDistancesFromTheReference)
{
    std::mt19937_64 random(3);
    const Settings shapes[] = {
        {.BinWidth = 1, .NumBins = 100, .Rows = 5},
        {.RefChan = 3, .BinWidth = 7, .NumBins = 1000, .Rows = 5, .Start = 100},
        {.RefChan = 2, .BinWidth = 64, .NumBins = 1, .Rows = 200, .Start = UINT64_MAX - 5000},
        {.RefChan = 129, .NumBins = 50, .Rows = 200, .Start = 7}, // a marker is no reference
        {.RefChan = 3, .NumBins = 50, .Start = 7},                // nor is a channel without a row
        {.BinWidth = 13, .NumBins = 0, .Rows = 5, .Start = 7},
        {.BinWidth = 13, .NumBins = 10, .Rows = 0, .Start = 7},
    };
    for (const Settings &shape : shapes)
        for (uint64_t count = 0; count < 2000; count = count * 2 + 1) {
            SCOPED_TRACE(fmt::format("bin width {}, events {}", shape.BinWidth, count));
            Events events{{shape.Start, shape.RefChan}};
            uint64_t time = shape.Start;
            for (uint64_t i = 0; i < count; ++i) {
                time += random() % 50;
                const bool outOfRow = random() % 4 == 0;
                events.push_back({time - random() % 3, static_cast<uint8_t>(random() % (outOfRow ? 256 : 5))});
            }
            const Counts expected =
                histogramT2(events, shape.Rows, shape.NumBins, shape.BinWidth, shape.RefChan);
            forEachSimdTarget([&] { ASSERT_EQ(runT2(countT2, events, shape, expected.size()), expected); });
            ASSERT_EQ(runT2(countT2Plain, events, shape, expected.size()), expected);
        }
}

// Where a division that is off by a little would show: whole blocks of distances just at the edges of bins.
TEST(HistogramCount, T2KeepsTheEdgesOfBins)
{
    for (const uint64_t binWidth : {1ull, 3ull, 25ull, 49ull, 999'983ull, 1ull << 33, 274'877'906'943ull}) {
        const Settings settings{.RefChan = 1, .BinWidth = binWidth, .NumBins = 4095, .Rows = 2};
        Events events{{1, 1}};
        for (uint64_t bin = 1; bin < 4097; ++bin)
            for (const uint64_t distance : {bin * binWidth - 1, bin * binWidth})
                events.push_back({1 + distance, 0});
        const Counts expected = histogramT2(events, 2, settings.NumBins, binWidth, 1);
        forEachSimdTarget(
            [&] { ASSERT_EQ(runT2(countT2, events, settings, expected.size()), expected) << binWidth; });
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
        const Settings settings{.RefChan = 1, .BinWidth = row.BinWidth, .NumBins = row.NumBins, .Rows = 2};
        Counts expected(8);
        expected[row.Bin] = 1;
        EXPECT_EQ(runT2(countT2, {{1, 1}, {row.Time, 0}}, settings, 8), expected);
    }
}

TEST(HistogramCount, T3CountsDtimes)
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
            SCOPED_TRACE(fmt::format("{} x {}, {} events", shape.Rows, shape.NumBins, count));
            Events events;
            Counts expected(shape.Elements);
            for (uint64_t i = 0; i < count; ++i) {
                const auto channel = static_cast<uint8_t>(random() % (random() % 4 == 0 ? 256 : 5));
                const uint64_t dtime = random() % (random() % 2 == 0 ? 32768 : 4);
                events.push_back({random() << 15 | dtime, channel});
                if (channel < 128 && channel < shape.Rows && dtime < shape.NumBins)
                    ++expected[channel * shape.NumBins + dtime];
            }
            const Streamed in(events);
            ASSERT_EQ(runT3(countT3Plain, in, shape.NumBins, shape.Rows, shape.Elements), expected);
            forEachSimdTarget(
                [&] { ASSERT_EQ(runT3(countT3, in, shape.NumBins, shape.Rows, shape.Elements), expected); });
        }
}

} // namespace
