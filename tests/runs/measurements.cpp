// Measurements of whole replays, through tessel.h, against references written apart.
#include "plain/measurements.h"

#include "runs/curves.h"
#include "support/random_words.h"
#include "support/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>

using namespace Plain;
using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr uint64_t resolution = 5, periodPs = 12'500; // 80 MHz
using Mode = CorrelationSettings::Mode;

// What came out of the chain.
struct Given
{
    Events events;
    size_t rows;
    StreamForm form;
};
using Measure = std::function<void(const Given &)>;

struct MeasureCase
{
    const char *name;
    bool t3;
    size_t words;
    double overflowShare; // the smaller, the denser
    Measure measure;
    int merges = 0; // stages in the chain: 1 and 2 as channel 5, 2 and 3 as channel 6, ...
    bool ascending = true;
};

void PrintTo(const MeasureCase &given, std::ostream *out)
{
    *out << given.name;
}

Measure histogram()
{
    return [](const Given &given) {
        constexpr uint64_t bins = 5000, binWidth = 3000;
        if (!given.form.t3) {
            setHistoT2NumBins(nullptr, bins);
            setHistoT2BinWidth(nullptr, binWidth);
            setHistoT2RefChan(nullptr, 2);
        }
        Counts counts(given.rows, given.form.t3 ? 32768 : bins);
        Finished finished;
        EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_TRUE(counts.data == (given.form.t3 ? histogramT3(given.events, given.rows)
                                                  : histogramT2(given.events, given.rows, bins, binWidth, 2)));
    };
}

Measure pairs(const PairSettings &settings)
{
    return [settings](const Given &given) {
        EXPECT_TRUE(setHisto2dParams(nullptr, settings.start, settings.x, settings.y, settings.offsetX,
                                     settings.offsetY, settings.widthX, settings.widthY, settings.binsX,
                                     settings.binsY));
        EXPECT_TRUE(setHisto2dTotMode(nullptr, settings.tot, settings.slope));
        EXPECT_TRUE(setHisto2dRecoveryTimingCorrection(nullptr, settings.recoveryMin, settings.recoveryMax,
                                                       settings.recoveryOffsetX, settings.recoveryOffsetY,
                                                       settings.recoverySlope));
        const auto expected = pairHistogram(given.events, given.rows, settings, given.form);
        EXPECT_GE(std::accumulate(expected.begin(), expected.end(), 0u), given.events.size() / 1000);
        Counts counts(settings.binsY, settings.binsX);
        EXPECT_TRUE(get2dHistogram(nullptr, 0, 1, 0, counts.data.data(), nullptr));
        EXPECT_TRUE(counts.data == expected);
    };
}

// The window spans the recording, so that it doesn't matter when the trace was given out.
Measure trace(size_t bins, double seconds)
{
    return [=](const Given &given) {
        setTimeTraceNumBins(nullptr, static_cast<int32_t>(bins));
        setTimeTraceHistorySize(nullptr, seconds);
        TraceReference reference(given.rows, bins,
                                 static_cast<uint64_t>(seconds * 1e12 / static_cast<double>(bins)), given.form);
        for (const Event &event : given.events) reference.count(event);
        reference.giveOut(true);
        ASSERT_TRUE(given.events.empty() || reference.firstBin() < bins) << "the history is too short";
        Counts counts(given.rows, bins);
        uint64_t firstBin = 12345;
        EXPECT_TRUE(getTimeTrace(nullptr, 0, 1, 0, counts.data.data(), &firstBin, nullptr));
        EXPECT_TRUE(counts.data == reference.trace());
        EXPECT_EQ(firstBin, given.events.empty() ? 1 : reference.firstBin());
    };
}

Measure correlation(const CorrelationSettings &settings)
{
    return [settings](const Given &given) {
        ReferenceCorrelation reference(settings);
        for (const Event &event : given.events) reference.add(given.form.ps(event.time), event.channel);
        Curves curves(settings);
        curves.run();
        const auto x = reference.axis(), y = reference.curves();
        ASSERT_EQ(curves.xSize, x.size());
        ASSERT_EQ(curves.ySize, y.size());
        for (size_t i = 0; i < x.size(); ++i) ASSERT_DOUBLE_EQ(curves.x[i], x[i]) << i;
        for (size_t i = 0; i < y.size(); ++i) {
            const bool isUnused = settings.mode != Mode::G2 && i % (x.size() + 1) == x.size();
            ASSERT_EQ(curves.y[i], isUnused ? untouched : y[i]) << i;
        }
        EXPECT_GT(reference.counts[0], 1000u);
    };
}

class Measurement : public testing::TestWithParam<MeasureCase>
{
};

std::string open(Host &host, bool t3, const std::vector<uint32_t> &words)
{
    return host.open(t3 ? TgxFile::t3(channels, resolution) : TgxFile::t2(channels, resolution), words);
}

} // namespace

TEST_P(Measurement, GivesWhatTheReferenceGives)
{
    const MeasureCase &given = GetParam();
    Host host;
    const auto words = randomWords({given.words, given.t3, given.overflowShare, channels, 17, given.ascending});
    ASSERT_FALSE(open(host, given.t3, words).empty());
    Events events = given.t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution);
    for (int i = 0; i < given.merges; ++i) {
        const int32_t members[] = {1 + i, 2 + i};
        const auto output = static_cast<uint8_t>(channels + 1 + i);
        EXPECT_EQ(addMMerge(nullptr, members, 2, 1), output);
        events = merge(events, {uint8_t(1 + i), uint8_t(2 + i)}, output, true);
    }
    const auto rows = static_cast<size_t>(channels + 1 + given.merges);
    ASSERT_EQ(getNumAllChans(nullptr), int64_t(rows));
    given.measure({std::move(events), rows, {given.t3, periodPs, resolution}});
    EXPECT_EQ(described("NumRecs"), static_cast<double>(given.words));
    EXPECT_EQ(host.logged("overrun"), 0u);
}

constexpr bool t2 = false, t3 = true, mixed = false;
constexpr double dense = 0.0005, burst = 0.05;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Histograms, Measurement, testing::Values(
    MeasureCase{"t3Empty", t3, 0, 0, histogram()},
    MeasureCase{"t3Mixed", t3, 100'000, 0.07, histogram(), 0, mixed},
    MeasureCase{"t3Large", t3, 9'000'001, 0.07, histogram(), 0, mixed},
    MeasureCase{"t3Merged", t3, 1'500'000, 0.07, histogram(), 3},
    MeasureCase{"t2Chunks", t2, 1'200'000, 0.002, histogram(), 0, mixed},
    MeasureCase{"t2Merged", t2, 1'500'000, 0.36, histogram(), 3}),
    [](const auto &given) { return given.param.name; });

INSTANTIATE_TEST_SUITE_P(Pairs, Measurement, testing::Values(
    MeasureCase{"t2Sheared", t2, 300'000, 0.07, pairs({.start = 3, .offsetX = 1000, .widthX = 10'000'000,
                                                       .widthY = 30'000'000, .binsX = 50, .slope = 0.3})},
    MeasureCase{"t2OverThresholdInChunks", t2, 1'500'000, 0.07, pairs({.tot = true, .widthX = 20'000'000,
                                                                       .widthY = 3'000'000, .binsX = 30, .binsY = 400})},
    MeasureCase{"t2InRecovery", t2, 300'000, 0.07, pairs({.widthX = 20'000'000, .widthY = 30'000'000,
                                                          .recoveryMin = 50'000'000, .recoveryOffsetX = 3'000'000,
                                                          .recoverySlope = -0.1})},
    MeasureCase{"t3OverThresholdSheared", t3, 1'500'000, 0.02, pairs({.tot = true, .widthX = 700, .widthY = 900,
                                                                      .slope = 0.5})},
    MeasureCase{"empty", t3, 0, 0, pairs({})}),
    [](const auto &given) { return given.param.name; });

INSTANTIATE_TEST_SUITE_P(Traces, Measurement, testing::Values(
    MeasureCase{"t2Merged", t2, 300'000, 0.07, trace(20'000, 16), 1},
    MeasureCase{"t2InChunks", t2, 1'500'000, 0.07, trace(500, 60)},
    MeasureCase{"t3Merged", t3, 300'000, 0.07, trace(30, 1.3), 1},
    MeasureCase{"empty", t3, 0, 0, trace(10, 1)}),
    [](const auto &given) { return given.param.name; });

INSTANTIATE_TEST_SUITE_P(Correlations, Measurement, testing::Values(
    MeasureCase{"g2", t2, 150'000, dense, correlation({.windowPs = 50'000, .binWidthPs = 50})},
    MeasureCase{"g2AutoCounts", t3, 150'000, burst, correlation({.chan2 = 1, .windowPs = 200'000, .binWidthPs = 500,
                                                                 .normalize = false})},
    MeasureCase{"g2Sync", t2, 150'000, dense, correlation({.chan1 = 0, .windowPs = 20'000, .binWidthPs = 20})},
    MeasureCase{"g2Merged", t3, 150'000, burst, correlation({.chan1 = 5, .windowPs = 300'000, .binWidthPs = 100}), 1},
    MeasureCase{"fcs", t2, 150'000, dense, correlation({.mode = Mode::FCS, .windowPs = 10'000'000, .minLagPs = 100})},
    MeasureCase{"fcsMerged", t3, 150'000, burst, correlation({.mode = Mode::FCS, .chan1 = 5, .chan2 = 3,
                                                              .windowPs = 30'000'000, .minLagPs = 5000}), 1},
    MeasureCase{"ffcsMerged", t3, 150'000, burst, correlation({.mode = Mode::FFCS, .chan1 = 5, .chan2 = 5,
                                                               .windowPs = 30'000'000, .minLagPs = 5000}), 1}),
    [](const auto &given) { return given.param.name; });
// clang-format on

TEST(CorrelationRun, WithoutAResultTheArraysStayAsTheyAre)
{
    const CorrelationSettings cases[] = {
        {.chan1 = 60, .chan2 = 300},                                     // channels without events
        {.windowPs = 20, .binWidthPs = 100},                             // a window below the bin width
        {.mode = Mode::FCS, .windowPs = 100, .minLagPs = 1000},          // longest lag below the shortest
        {.mode = Mode::FFCS, .windowPs = uint64_t{1} << 60, .steps = 9}, // longest lag beyond the stream
    };
    Host host;
    ASSERT_FALSE(open(host, false, randomWords({20'000, false, dense})).empty());
    for (const CorrelationSettings &given : cases) {
        SCOPED_TRACE(&given - cases);
        Curves curves(given);
        curves.run();
        EXPECT_EQ(curves.y, std::vector<double>(curves.y.size(), untouched));
    }
    setG2Params(nullptr, 1, 2, NAN, INFINITY, 1);
    EXPECT_TRUE(getCorrelation(nullptr, 0, 1, 0, nullptr, nullptr, nullptr));
    EXPECT_TRUE(setFCSParams(nullptr, 1, 2, nullptr, -INFINITY, INFINITY, UINT64_MAX));
    EXPECT_TRUE(setFFCSParams(nullptr, 1, 2, nullptr, NAN, 1e300, 0));
    EXPECT_EQ(host.logged("ERR"), 0u);
}

namespace {

struct RawCounts
{
    tessel_correlation_counts told{};
    std::vector<uint64_t> pairs[4], edges, later[2], earlier[2];

    RawCounts()
    {
        told.size = sizeof(told);
        EXPECT_TRUE(tessel_getCorrelationCounts(nullptr, &told));
        const size_t size = told.bins + 1;
        auto room = [size](auto &values, uint64_t *&place) {
            values.assign(size, 0);
            place = values.data();
        };
        for (size_t row = 0; row < 4; ++row) room(pairs[row], told.pairs[row]);
        for (size_t i = 0; i < 2; ++i)
            room(later[i], told.laterEvents[i]), room(earlier[i], told.earlierEvents[i]);
        room(edges, told.edges);
        told.capacity = told.bins;
        EXPECT_FALSE(tessel_getCorrelationCounts(nullptr, &told));
        told.capacity = size;
        EXPECT_TRUE(tessel_getCorrelationCounts(nullptr, &told));
    }
};

// All pairs of all events, up to the longest lag, and who could be in one.
void expectAllPairs(const Given &given, const CorrelationSettings &settings)
{
    SCOPED_TRACE(static_cast<int>(settings.mode));
    Curves(settings).run();
    const RawCounts counts;
    std::vector<uint64_t> times[2];
    for (const Event &event : given.events)
        for (size_t c : {0, 1})
            if (event.channel == (c ? settings.chan2 : settings.chan1))
                times[c].push_back(given.form.ps(event.time));
    const bool isG2 = settings.mode == Mode::G2, isFcs = settings.mode == Mode::FCS;
    const uint64_t start = std::min(times[0][0], times[1][0]), end = std::max(times[0].back(), times[1].back());
    const size_t ofRow[4][2] = {
        {0, isG2 ? 1u : 0u}, {isG2 ? 1u : 0u, isG2 ? 0u : 1u}, {1, 0}, {1, 1}}; // later, earlier
    for (size_t row = 0; row < (isG2 ? 2 : 4); ++row) {
        std::vector<uint64_t> expected(counts.told.bins, 0);
        for (const uint64_t later : times[ofRow[row][0]])
            for (const uint64_t earlier : times[ofRow[row][1]])
                for (size_t k = 0; later >= earlier && k < expected.size(); ++k) {
                    const uint64_t lag = later - earlier + (isFcs ? uint64_t(-1) : 0); // to the end of a bin
                    if (lag < UINT64_MAX && lag >= counts.edges[k] && lag < counts.edges[k + 1]) ++expected[k];
                }
        const double atEdges = settings.mode == Mode::FFCS ? 2 : 0; // these it takes to either side
        for (size_t k = 0; k < expected.size(); ++k)
            EXPECT_NEAR(counts.pairs[row][k], expected[k], atEdges) << row << " " << k;
    }
    for (size_t c : {0, 1}) {
        EXPECT_EQ(counts.told.events[c], times[c].size());
        EXPECT_EQ(counts.told.first[c], times[c].front());
        EXPECT_EQ(counts.told.last[c], times[c].back());
        for (size_t k = 0; k < counts.edges.size(); ++k) {
            const uint64_t lag = isG2 ? 0 : counts.edges[k];
            EXPECT_EQ(counts.later[c][k],
                      std::ranges::count_if(times[c], [=](uint64_t t) { return t >= start + lag; }));
            EXPECT_EQ(counts.earlier[c][k],
                      std::ranges::count_if(times[c], [=](uint64_t t) { return t + lag <= end; }));
        }
    }
}

} // namespace

TEST(CorrelationCounts, AreThoseOfAllPairsFromTheStart)
{
    std::mt19937 random(5);
    std::vector<uint32_t> words;
    for (uint32_t unit = 1; words.size() < 3000; unit += random() % 200)
        words.push_back(t2Event(random() % channels, unit));
    Host host;
    ASSERT_FALSE(open(host, t2, words).empty());
    tessel_correlation_counts none{};
    none.size = sizeof(none);
    EXPECT_FALSE(tessel_getCorrelationCounts(nullptr, &none));
    tessel_setCorrelationFromStart(nullptr, 1);
    const Given given{decodeT2(words, channels, resolution), channels + 1, {t2, periodPs, resolution}};
    for (const uint64_t chan2 : {1, 2}) {
        expectAllPairs(given, {.chan2 = chan2, .windowPs = 200'000, .binWidthPs = 4'000});
        for (const Mode mode : {Mode::FCS, Mode::FFCS})
            expectAllPairs(given,
                           {.mode = mode, .chan2 = chan2, .windowPs = 300'001, .minLagPs = 300, .steps = 12});
    }
}
