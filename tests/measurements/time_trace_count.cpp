// Events in, bins of time out: which events count where, when the window moves on, what is given out, and that
// the loop over runs of events says the same as a direct reading.
#include "measurements/time_trace_count.h"

#include "support/reference_measurements.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>

using namespace Tessel;
using namespace TestSupport;

namespace {

struct Streamed
{
    std::vector<uint64_t> times;
    std::vector<uint8_t> channels;

    explicit Streamed(const Events &events)
    {
        for (const auto &[time, channel] : events) {
            times.push_back(time);
            channels.push_back(channel);
        }
    }
};

Tessel::TimeTraceWork workOf(uint64_t rows, uint64_t bins, uint64_t width)
{
    Tessel::TimeTraceWork work;
    work.BinWidth = width;
    EXPECT_TRUE(work.allocate(rows, bins));
    return work;
}

using Rows = std::vector<uint32_t>;
constexpr uint64_t width = 10, bins = 4;

TEST(TimeTraceCount, GivesOutCompleteBins)
{
    const struct
    {
        const char *name;
        Events events;
        bool last;
        bool given;
        Rows trace; // sync, channel 1
        uint64_t firstBin;
    } rows[] = {
        {"nothing", {}, false, false, {0, 0, 0, 0, 0, 0, 0, 0}, 0},
        {"the bin being counted stays", {{3, 1}, {7, 1}}, false, false, {0, 0, 0, 0, 0, 0, 0, 0}, 0},
        {"at the end it is given out", {{3, 1}, {7, 1}}, true, true, {0, 0, 0, 0, 0, 0, 0, 2}, 1},
        {"complete bins", {{3, 1}, {9, 0}, {10, 1}, {25, 1}}, false, true, {0, 0, 1, 0, 0, 0, 1, 1}, 2},
        {"complete bins and the last", {{3, 1}, {12, 0}, {25, 1}}, true, true, {0, 0, 1, 0, 0, 1, 0, 1}, 3},
        {"the window moves on", {{3, 1}, {12, 1}, {45, 1}}, false, true, {0, 0, 0, 0, 0, 1, 0, 0}, 4},
        {"a last bin at the end of the window", {{3, 1}, {38, 1}}, true, true, {0, 0, 0, 0, 1, 0, 0, 1}, 4},
        {"a gap longer than the window", {{3, 1}, {79, 1}, {81, 0}}, true, true, {0, 0, 0, 1, 0, 0, 1, 0}, 9},
        {"just the whole window", {{3, 1}, {69, 1}}, true, true, {0, 0, 0, 0, 0, 0, 0, 1}, 7},
        {"a marker doesn't move it", {{3, 1}, {79, 129}, {38, 143}}, true, true, {0, 0, 0, 0, 0, 0, 0, 1}, 1},
        {"an overflow does", {{3, 1}, {25, 255}}, true, true, {0, 0, 0, 0, 0, 1, 0, 0}, 3},
        {"a channel without a row does", {{3, 1}, {15, 2}}, true, true, {0, 0, 0, 0, 0, 0, 1, 0}, 2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Tessel::TimeTraceWork work = workOf(2, bins, width);
        Streamed in(row.events);
        timeTraceCount(work, T2Time(), in.times.data(), in.channels.data(), in.times.size());
        Rows trace(2 * bins);
        EXPECT_EQ(giveOutTrace(work, trace.data(), 2, row.last), row.given);
        EXPECT_EQ(trace, row.trace);
        EXPECT_EQ(work.FirstBin, row.firstBin);
    }
}

TEST(TimeTraceCount, ScrollsEarlierBinsToTheLeft)
{
    Tessel::TimeTraceWork work = workOf(2, bins, width);
    Rows trace(2 * bins);
    auto countAndGive = [&](const Events &events) {
        Streamed in(events);
        timeTraceCount(work, T2Time(), in.times.data(), in.channels.data(), in.times.size());
        giveOutTrace(work, trace.data(), 2, false);
        return Rows(trace.begin() + bins, trace.end());
    };
    EXPECT_EQ(countAndGive({{5, 1}, {6, 1}, {10, 1}}), (Rows{0, 0, 0, 2}));
    EXPECT_EQ(countAndGive({{11, 1}, {12, 1}, {30, 1}}), (Rows{0, 2, 3, 0}));
    EXPECT_EQ(countAndGive({{130, 1}}), (Rows{0, 2, 3, 0})); // the next complete bin tells of the gap
    EXPECT_EQ(countAndGive({{140, 1}}), (Rows{0, 0, 0, 1}));
    EXPECT_EQ(work.FirstBin, 14u);
}

TEST(TimeTraceCount, RowsComeDuringARun)
{
    Tessel::TimeTraceWork work = workOf(2, bins, width);
    Streamed in({{5, 1}, {12, 1}, {13, 2}}), later({{14, 2}, {25, 2}});
    timeTraceCount(work, T2Time(), in.times.data(), in.channels.data(), in.times.size());
    work.growTo(3);
    timeTraceCount(work, T2Time(), later.times.data(), later.channels.data(), later.times.size());
    Rows trace(3 * bins);
    giveOutTrace(work, trace.data(), 3, true);
    EXPECT_EQ(trace, (Rows{0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 1, 1}));
}

struct StreamStyle
{
    bool t3;
    uint64_t step;       // mean step of the raw time
    int jumpBackPercent; // of the events
    int gapPerMille;     // of the events, by up to `gap`
    uint64_t gap;
};

Events randomEvents(std::mt19937_64 &random, const StreamStyle &style, size_t count, uint8_t channels)
{
    Events events;
    uint64_t time = random() % 3 == 0 ? random() % (style.step * 1000 + 1) : 0;
    for (size_t i = 0; i < count; ++i) {
        time += random() % (2 * style.step + 1);
        if (random() % 1000 < static_cast<uint64_t>(style.gapPerMille)) time += random() % style.gap;
        if (random() % 100 < static_cast<uint64_t>(style.jumpBackPercent))
            time -= std::min(time, style.step * 5);
        const uint64_t kind = random() % 100;
        const auto channel = kind < 3   ? static_cast<uint8_t>(128 + random() % 127)
                             : kind < 8 ? uint8_t{255}
                                        : static_cast<uint8_t>(random() % channels);
        const uint64_t raw = style.t3 ? time << 15 | random() % 32768 : time;
        events.push_back({raw, channel});
    }
    return events;
}

constexpr uint64_t periodPs = 12'500;
constexpr double resolution = 4.7;

template <class Time>
void expectAsReference(const Events &events, const Time &time, size_t rows, uint64_t binCount,
                       uint64_t binWidth, std::mt19937_64 &random)
{
    TraceReference reference(rows, binCount, binWidth, {Time::isT3, periodPs, resolution});
    Tessel::TimeTraceWork work = workOf(rows, binCount, binWidth);
    Rows trace(rows * binCount);
    const Streamed in(events);
    for (size_t at = 0; at < events.size();) {
        const size_t size = std::min<size_t>(1 + random() % 3000, events.size() - at);
        timeTraceCount(work, time, in.times.data() + at, in.channels.data() + at, size);
        for (size_t i = at; i < at + size; ++i) reference.count(events[i]);
        at += size;
        const bool last = at == events.size();
        if (random() % 2 == 0 && !last) continue;
        giveOutTrace(work, trace.data(), rows, last);
        reference.giveOut(last);
        ASSERT_EQ(trace, reference.trace()) << "after " << at << " events";
        ASSERT_EQ(work.FirstBin, reference.firstBin());
    }
}

TEST(TimeTraceCount, AgreesWithADirectReading)
{
    const StreamFacts facts{.Mode = MeasMode::T3, .SyncPeriodPs = periodPs, .Resolution = resolution};
    const T3Time t3Time(facts);
    std::mt19937_64 random(11);
    const StreamStyle styles[] = {
        {false, 1000, 0, 0, 1},
        {false, 1000, 0, 5, 3'000'000},
        {false, 1000, 5, 2, 30'000'000},
        {false, 1, 0, 20, 1000},
        {false, 1ull << 50, 0, 3, 1ull << 60},
        {true, 3, 0, 0, 1},
        {true, 3, 0, 5, 10'000},
        {true, 3, 5, 2, 100'000},
        {true, 0, 0, 30, 400},
        {true, 1ull << 36, 0, 3, 1ull << 45},
    };
    const uint64_t widths[] = {1, 7, 1000, 40'000, 400'000, 1ull << 32, 1ull << 52, UINT64_MAX / 3};
    for (const StreamStyle &style : styles)
        for (const uint64_t binWidth : widths)
            for (const uint64_t binCount : {1u, 2u, 16u, 301u}) {
                const size_t rows = 1 + random() % 9;
                const Events events = randomEvents(random, style, 6000, static_cast<uint8_t>(rows + 1));
                SCOPED_TRACE(fmt::format("{} step {}, {} bins of {}", style.t3 ? "T3" : "T2", style.step,
                                         binCount, binWidth));
                if (style.t3)
                    expectAsReference(events, t3Time, rows, binCount, binWidth, random);
                else
                    expectAsReference(events, T2Time(), rows, binCount, binWidth, random);
                if (HasFatalFailure()) return;
            }
}

TEST(TimeTraceCount, BinWidthIsTheSpanThroughTheBins)
{
    EXPECT_EQ(traceBinWidth(10'000'000'000'000, 10000), 1'000'000'000u);
    EXPECT_EQ(traceBinWidth(10, 3), 3u);
    EXPECT_EQ(traceBinWidth(9, 10), 0u);
    EXPECT_EQ(traceBinWidth(9, 0), 0u);
    EXPECT_EQ(traceBinWidth(UINT64_MAX, 1), UINT64_MAX);
}

TEST(TimeTraceCount, MemoryIsRefusedForAnAbsurdShape)
{
    for (const uint64_t binCount : {UINT64_MAX, UINT64_MAX / 5, uint64_t{1} << 60})
        EXPECT_FALSE(Tessel::TimeTraceWork().allocate(5, binCount)) << binCount;
}

} // namespace
