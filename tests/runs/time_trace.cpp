// Time traces of whole replays, through tessel.h, against a reference written apart and against what is known
// of real recordings.
#include "support/host.h"
#include "support/random_words.h"
#include "support/recorded_data.h"
#include "support/reference_measurements.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t channels = 3;

struct Trace
{
    Trace(size_t rows, size_t bins) : counts(rows, bins) {}

    bool measure(uint8_t waitFinished = 1)
    {
        return getTimeTrace(nullptr, 0, waitFinished, 0, counts.data.data(), &firstBin, finished.get());
    }
    std::vector<int64_t> row(size_t index, size_t from, size_t to) const
    {
        auto first = counts.data.begin() + static_cast<ptrdiff_t>(index * counts.columns);
        return {first + static_cast<ptrdiff_t>(from), first + static_cast<ptrdiff_t>(to)};
    }

    Counts counts;
    uint64_t firstBin = 12345;
    Finished finished;
};

void open(Host &host, const TgxFile &file, const std::vector<uint32_t> &words)
{
    ASSERT_FALSE(host.open(file, words).empty());
}

} // namespace

// The window spans the recording, so that it doesn't matter when the trace was given out.
TEST(TimeTrace, CountsAsTheReferenceDoes)
{
    constexpr uint64_t resolution = 1000;
    constexpr double syncRate = 80e6;
    const struct
    {
        const char *name;
        bool t3;
        size_t words, bins;
        double history; // s
        bool merged;
    } rows[] = {{"T2", false, 300'000, 997, 1600, false},
                {"T2 merged", false, 300'000, 20'000, 1600, true},
                {"T2 in chunks", false, 1'200'000, 500, 12000, false},
                {"T3", true, 300'000, 997, 1.3, false},
                {"T3 merged", true, 300'000, 30, 1.3, true},
                {"T3 empty", true, 0, 10, 1, false}};
    for (const auto &given : rows) {
        SCOPED_TRACE(given.name);
        Host host;
        auto words = randomWords({given.words, given.t3, 0.07, channels, 5});
        open(host, given.t3 ? TgxFile::t3(channels, 4, syncRate) : TgxFile::t2(channels, resolution), words);
        Events events = given.t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution);
        if (given.merged) {
            const int32_t members[] = {1, 2};
            addMMerge(nullptr, members, 2, 1);
            events = merge(events, {1, 2}, channels + 1, true);
        }
        const size_t traceRows = channels + 1 + given.merged;
        setTimeTraceNumBins(nullptr, static_cast<int32_t>(given.bins));
        setTimeTraceHistorySize(nullptr, given.history);
        const auto width = static_cast<uint64_t>(given.history * 1e12 / static_cast<double>(given.bins));
        TraceReference reference(traceRows, given.bins, width, {given.t3, 12'500, 4});
        for (const Event &event : events) reference.count(event);
        reference.giveOut(true);
        if (!events.empty()) {
            ASSERT_LT(reference.firstBin(), given.bins) << "the history is too short";
        }

        Trace trace(traceRows, given.bins);
        EXPECT_TRUE(trace.measure());
        EXPECT_TRUE(trace.finished.isSet());
        EXPECT_TRUE(trace.counts.data == reference.trace());
        EXPECT_EQ(trace.firstBin, given.words ? reference.firstBin() : 1);
    }
}

TEST(TimeTrace, KeepsTheNewestOfALongerRecording)
{
    Host host;
    constexpr size_t bins = 50, events = 3000; // one event a bin of 1 us
    std::vector<uint32_t> words(events);
    for (size_t i = 0; i < events; ++i) words[i] = t2Event(i % channels, static_cast<uint32_t>(i * 1000 + 500));
    open(host, TgxFile::t2(channels, 1000), words); // ps
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, bins * 1e-6);
    Trace trace(channels + 1, bins);
    trace.measure();
    EXPECT_EQ(trace.firstBin, events);
    for (size_t column = 0; column < bins; ++column) {
        const uint64_t bin = trace.firstBin - bins + column;
        for (size_t row = 0; row <= channels; ++row)
            ASSERT_EQ(trace.counts.at(row, column), row == bin % channels + 1 ? 1u : 0u)
                << row << ' ' << column;
    }
}

TEST(TimeTrace, BlinkingOfASingleMolecule)
{
    auto data = recordedData("single-molecule-blinking");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    Host host;
    open(host, TgxFile::t2(1, 1000),
         t2Words(
             *data, [](uint8_t) { return 0; }, [](uint64_t ns) { return ns; }));
    auto known = boost::json::value_to<std::vector<int64_t>>(data->reference["trace_100ms"]);
    constexpr size_t bins = 400;
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, bins * 0.1);
    Trace trace(2, bins);
    trace.measure();
    EXPECT_EQ(trace.firstBin, known.size());
    EXPECT_EQ(trace.row(1, bins - known.size(), bins), known);
    EXPECT_EQ(trace.counts.sum(), data->times.size());
}

// Ticks of 2^-20 s: a time in ns is cut, a bin of 60 s isn't.
TEST(TimeTrace, PhotonsOfAPulsar)
{
    auto data = recordedData("xray-pulsar-b1509");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    Host host;
    auto nanoseconds = [](uint64_t ticks) { return (ticks * 1'000'000'000) >> 20; };
    open(host, TgxFile::t2(1, 1000),
         t2Words(
             *data, [](uint8_t) { return 0; }, nanoseconds));
    auto known = boost::json::value_to<std::vector<int64_t>>(data->reference["trace_60s"]);
    const size_t bins = known.size() + 1;
    setTimeTraceNumBins(nullptr, static_cast<int32_t>(bins));
    setTimeTraceHistorySize(nullptr, static_cast<double>(bins) * 60);
    Trace trace(2, bins);
    trace.measure();
    EXPECT_EQ(trace.row(1, 1, bins), known);
}

TEST(TimeTrace, DetectorsOfAPhotonEmitter)
{
    auto data = recordedData("qd-hbt-320mhz");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    Host host;
    auto inputOf = [](uint8_t channel) { return channel == 5 ? syncInput : channel - 1; };
    open(host, TgxFile::t2(2, 1), t2Words(*data, inputOf, [](uint64_t ps) { return ps; }));
    auto known = boost::json::value_to<std::vector<int64_t>>(data->reference["trace_10ms_all_channels"]);
    constexpr size_t bins = 40;
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, bins * 0.01);
    Trace trace(3, bins);
    trace.measure();
    std::vector<int64_t> sums = trace.row(0, bins - known.size(), bins);
    for (size_t row : {1u, 2u}) {
        auto counts = trace.row(row, bins - known.size(), bins);
        std::transform(sums.begin(), sums.end(), counts.begin(), sums.begin(), std::plus<>());
    }
    EXPECT_EQ(sums, known);
}

TEST(TimeTrace, ParametersThatCantBeMeasuredWith)
{
    const struct
    {
        const char *name;
        int32_t bins;
        double history;
        const char *logged;
    } rows[] = {
        {"no bins", 0, 1, "A time trace without bins, can't measure!"},
        {"bins below zero", -1, 1, "too many bins!"},
        {"the least number", INT32_MIN, 1e300, "too many bins!"},
        {"bins beyond memory", INT32_MAX, 1, "too many bins!"},
        {"history shorter than its bins", 1000, 999e-12,
         "A time trace with a bin width of 0 ps, can't measure!"},
        {"history below zero", 1000, -1, "bin width of 0 ps"},
        {"history that is no number", 1000, std::numeric_limits<double>::quiet_NaN(), "bin width of 0 ps"},
    };
    Host host;
    open(host, TgxFile::t2(channels, 1000), randomWords({1000, false, 0.07, channels}));
    for (const auto &given : rows) {
        SCOPED_TRACE(given.name);
        EXPECT_TRUE(setTimeTraceNumBins(nullptr, given.bins));
        EXPECT_TRUE(setTimeTraceHistorySize(nullptr, given.history));
        Trace trace(channels + 1, 1000);
        const size_t before = host.logged(given.logged);
        EXPECT_TRUE(trace.measure());
        EXPECT_TRUE(trace.finished.isSet());
        const uint32_t expected = given.bins == 1000 ? 0 : 0xDEADBEEF; // emptied if it has a size
        EXPECT_EQ(trace.counts.at(channels, 999), expected);
        EXPECT_EQ(host.logged(given.logged), before + 1);
    }
    setTimeTraceNumBins(nullptr, 10);
    setTimeTraceHistorySize(nullptr, 1e300); // saturates: all in one bin
    Trace trace(channels + 1, 10);
    trace.measure();
    EXPECT_GT(trace.counts.sum(), 800u);
    EXPECT_TRUE(getTimeTrace(nullptr, 0, 1, 0, nullptr, nullptr, nullptr));
}

TEST(TimeTrace, StepsOfASequenceByTime)
{
    Host host;
    constexpr size_t events = 2000, bins = 100; // an event each 10 ms, bins of 10 ms
    std::vector<uint32_t> words;
    for (size_t i = 0; i < events; ++i) {
        words.push_back(t2Event(0, 5));
        words.push_back(t2Overflow(1));
    }
    open(host, TgxFile::t2(1, 10'000'000'000.0 / (1 << 25)), words); // 10 ms a wrap, less the cut
    const uint64_t wrapPs = 298ull << 25;
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, static_cast<double>(wrapPs * bins) * 1e-12);
    setSequenceMode(1, 1, static_cast<double>(wrapPs * 20) * 1e-12 - 1e-6);
    Trace trace(2, bins);
    trace.measure(0);
    uint64_t counted = 0;
    const size_t steps = takeSteps([&] { counted += trace.counts.sum(); });
    EXPECT_TRUE(trace.finished.isSet());
    EXPECT_EQ(counted, events);
    EXPECT_EQ(steps, events / 20 + 1); // the last step comes with the end
    EXPECT_EQ(host.logged(" 5"), steps - 1);
}

TEST(TimeTrace, StepsOfASequenceByCount)
{
    Host host;
    constexpr size_t events = 10'000, bins = 1000;
    std::vector<uint32_t> words(events);
    for (size_t i = 0; i < events; ++i) words[i] = t2Event(0, static_cast<uint32_t>(i * 10));
    open(host, TgxFile::t2(1, 1000), words);
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, 100e-6); // 10 events a bin
    setSequenceMode(2, 1, 1000);
    Trace trace(2, bins);
    trace.measure(0);
    uint64_t counted = 0;
    const size_t steps = takeSteps([&] { counted += trace.counts.sum(); });
    EXPECT_EQ(counted, events);
    EXPECT_EQ(steps, 10u); // behind 1001, 2001, ... 9001 events, and the end
}

TEST(TimeTrace, AHostThatDoesNotAnswerBlocksNobodyElse)
{
    Host host;
    auto words = randomWords({200'000, false, 0.07, channels, 3});
    open(host, TgxFile::t2(channels, 1000), words);
    setTimeTraceNumBins(nullptr, 100);
    setSequenceMode(2, 1, 100);
    Trace trace(channels + 1, 100);
    trace.measure(0);
    ASSERT_EQ(waitNewData(nullptr), 1); // and never answers
    EXPECT_TRUE(clearMeasure(nullptr));
    const int32_t members[] = {1, 2};
    EXPECT_GE(addMMerge(nullptr, members, 2, 1), 0);
    EXPECT_EQ(getNumAllChans(nullptr), int64_t{channels} + 2);
    stopMeasure(nullptr);
    EXPECT_TRUE(trace.finished.wait(15s));
}

TEST(TimeTrace, AStageThatComesDuringARunLeavesTheCallersArray)
{
    Host host;
    auto words = randomWords({200'000, false, 0.07, channels, 3});
    open(host, TgxFile::t2(channels, 1000), words);
    constexpr size_t bins = 100;
    setTimeTraceNumBins(nullptr, bins);
    setTimeTraceHistorySize(nullptr, 1500);
    setSequenceMode(1, 1, 100);
    Trace trace(channels + 1, bins); // no row for the new channel
    trace.measure(0);
    ASSERT_EQ(waitNewData(nullptr), 1);
    const auto before = trace.counts.data;
    const int32_t members[] = {1, 2};
    EXPECT_GE(addMMerge(nullptr, members, 2, 1), 0);
    while (!trace.finished.isSet()) {
        gotNewData(nullptr);
        waitNewData(nullptr);
    }
    EXPECT_EQ(trace.counts.data, before);
}
