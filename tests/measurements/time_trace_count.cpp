// Events in, bins of time out: which events count where, when the window moves on, what is given out, and that
// the loops over runs and blocks of events say the same as a direct reading.
#include "measurements/time_trace_count.h"

#include "measurements/streamed.h"
#include "plain/measurements.h"
#include "support/simd_targets.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>

using namespace Tessel;
using namespace Plain;
using namespace TestSupport;

namespace {

Tessel::TimeTraceWork workOf(uint64_t rows, uint64_t bins, uint64_t width)
{
    Tessel::TimeTraceWork work;
    work.BinWidth = width;
    EXPECT_TRUE(work.allocate(rows, bins));
    return work;
}

using Rows = std::vector<uint32_t>;

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
    const size_t rowsAtFirst = 1 + random() % rows; // others come with a stage
    Tessel::TimeTraceWork work = workOf(rowsAtFirst, binCount, binWidth);
    Rows trace(rows * binCount);
    size_t at = 0;
    Streamed(events).inPieces(5000, random, [&](auto times, auto channels, size_t size) {
        if (at >= events.size() / 2 && work.Rows < rows) work.growTo(rows);
        timeTraceCount(work, time, times, channels, size);
        for (const size_t end = at + size; at < end; ++at)
            if (events[at].channel >= 128 || events[at].channel < work.Rows)
                reference.count(events[at]);
            else
                reference.count({events[at].time, 255}); // has no row yet
        const bool last = at == events.size();
        if (random() % 2 == 0 && !last) return;
        const uint64_t firstBin = reference.firstBin();
        reference.giveOut(last);
        ASSERT_EQ(giveOutTrace(work, trace.data(), rows, last), last || reference.firstBin() != firstBin);
        ASSERT_EQ(trace, reference.trace()) << "after " << at << " events";
        ASSERT_EQ(work.FirstBin, reference.firstBin());
    });
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
                withSimdTarget(random() % 60, [&] {
                    if (style.t3)
                        expectAsReference(events, t3Time, rows, binCount, binWidth, random);
                    else
                        expectAsReference(events, T2Time(), rows, binCount, binWidth, random);
                });
                if (HasFatalFailure()) return;
            }
}

} // namespace
