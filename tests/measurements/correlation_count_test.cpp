// Pair counting, block by block, against a reference that looks at each event: every row, count, time and
// cursor.
#include "measurements/correlation_count.h"
#include "measurements/correlation_result.h"
#include "measurements/correlation_setup.h"
#include "measurements/streamed.h"
#include "support/reference_correlation.h"
#include "support/simd_targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

using namespace Tessel;
using namespace Plain;
using namespace TestSupport;

namespace {

using Mode = CorrelationSettings::Mode;

// Event by event, each scan and walk as it is defined.
void countCorrelationPlain(CorrelationWork &work, const TimedEvents &events)
{
    if (work.Params.CorrMode == CorrMode::G2) return countG2Events(work, events);
    const auto count = work.Params.CorrMode == CorrMode::FFCS ? walkLags : scanLags;
    for (uint64_t i = 0; i < events.Count; ++i)
        if (isCorrelated(work.Params, events.Channels[i]))
            countLagsEvent(work, correlated(work.Params, events.Times[i], events.Channels[i]), count);
}

// How the times of a stream go on.
struct StreamShape
{
    const char *name;
    double meanGapPs;
    uint64_t grid = 1;     // times are multiples of it: many are equal, many ages are exactly a lag
    double lateShare = 0;  // events that come after a later one
    double latePs = 0;     // by so much at most
    double gapShare = 0;   // gaps far beyond the window
    double backShare = 0;  // times that start again near 0
    double aheadShare = 0; // single times far in the future
    double zeroShare = 0;  // single times of 0
    double channel1Share = 0.5;
    uint64_t offsetPs = 0; // where the stream starts
};

void PrintTo(const StreamShape &shape, std::ostream *out)
{
    *out << shape.name;
}

const StreamShape shapes[] = {
    {.name = "ordered", .meanGapPs = 300},
    {.name = "coarse", .meanGapPs = 300, .grid = 100},
    {.name = "coarseDense", .meanGapPs = 40, .grid = 50, .offsetPs = 1000},
    {.name = "sparse", .meanGapPs = 30'000},
    {.name = "unequalRates", .meanGapPs = 150, .channel1Share = 0.97},
    {.name = "unequalRatesOtherWay", .meanGapPs = 150, .channel1Share = 0.03},
    {.name = "late", .meanGapPs = 300, .lateShare = 0.02, .latePs = 2000},
    {.name = "lateCoarse", .meanGapPs = 300, .grid = 100, .lateShare = 0.05, .latePs = 1500},
    {.name = "veryLate", .meanGapPs = 300, .lateShare = 0.01, .latePs = 60'000},
    {.name = "gaps", .meanGapPs = 300, .gapShare = 0.002},
    {.name = "startsAgain", .meanGapPs = 300, .backShare = 0.001, .offsetPs = 500},
    {.name = "again", .meanGapPs = 300, .grid = 250, .lateShare = 0.01, .latePs = 3000, .backShare = 0.001},
    {.name = "ahead", .meanGapPs = 300, .lateShare = 0.01, .latePs = 500, .aheadShare = 0.0005},
    {.name = "zeros", .meanGapPs = 300, .grid = 20, .zeroShare = 0.001},
    {.name = "beyondSigned", .meanGapPs = 300, .offsetPs = (uint64_t{1} << 63) - 1'500'000},
};

Streamed makeStream(const StreamShape &shape, size_t count, uint32_t seed)
{
    std::mt19937_64 random(seed);
    std::exponential_distribution<> gap(1 / shape.meanGapPs);
    std::uniform_real_distribution<> share;
    Events events;
    uint64_t now = shape.offsetPs;
    for (size_t i = 0; i < count; ++i) {
        now += uint64_t(gap(random) * (share(random) < 0.1 ? 5 : 0.6)); // in bursts
        if (share(random) < shape.gapShare) now += 3'000'000;
        if (share(random) < shape.backShare) now = shape.offsetPs + random() % 4000;
        uint64_t time = now;
        if (share(random) < shape.lateShare) time -= std::min(time, uint64_t(share(random) * shape.latePs));
        if (share(random) < shape.aheadShare) time += 100'000 + random() % 1'000'000;
        if (share(random) < shape.zeroShare) time = 0;
        const double kind = share(random), pair = share(random);
        const uint8_t others = kind < 0.05 ? 255 : kind < 0.07 ? 129 : 3;
        const uint8_t channel = kind < 0.12 ? others : pair < shape.channel1Share ? 1 : 2;
        events.push_back({time / shape.grid * shape.grid, channel});
    }
    return Streamed(events);
}

std::shared_ptr<CorrelationWork> workOf(const CorrelationSettings &settings)
{
    return setUpCorrelation({}, {.CorrMode = static_cast<uint32_t>(settings.mode),
                                 .CorrChan1 = settings.chan1,
                                 .CorrChan2 = settings.chan2,
                                 .CorrWindow = settings.windowPs,
                                 .CorrSteps = settings.steps,
                                 .CorrBinWidth = settings.binWidthPs,
                                 .CorrMinLag = settings.minLagPs,
                                 .CorrNormalize = settings.normalize});
}

std::vector<uint64_t> row(const CorrelationWork &work, size_t index)
{
    return {work.Rows[index].get(), work.Rows[index].get() + work.Lags};
}

void expectSame(const CorrelationWork &work, const ReferenceCorrelation &reference)
{
    for (size_t i = 0; i < 4; ++i) {
        ASSERT_EQ(row(work, i), reference.rows[i]) << "row " << i;
        if (work.Params.CorrMode == CorrMode::FFCS) {
            ASSERT_EQ(work.LagCursors[i], reference.cursors[i]) << i;
        }
    }
    ASSERT_EQ(work.CorrCounts, reference.counts);
    ASSERT_EQ(work.FirstTime, reference.firstTimes);
    ASSERT_EQ(work.LastTimes, reference.lastTimes);
    const ResultShape shape = curveShape({}, work.Params);
    std::vector<double> curves(shape.Rows * shape.Columns);
    giveOutCurves(work, curves.data());
    auto expected = reference.curves();
    ASSERT_TRUE(std::ranges::equal(curves, expected, [](double a, double b) {
        return a == b || (std::isnan(a) && std::isnan(b));
    })) << testing::PrintToString(curves);
}

using Works = std::vector<std::shared_ptr<CorrelationWork>>;

// Counts the stream in pieces of random size, clears now and then, and compares each work on the way.
template <class Count>
void compare(const CorrelationSettings &settings, const Works &works, const Streamed &stream, uint32_t seed,
             Count count)
{
    std::mt19937 random(seed);
    ReferenceCorrelation reference(settings);
    for (size_t at = 0, piece = 0; at < stream.times.size(); ++piece) {
        size_t longest = piece % 3 == 0 ? 5 : piece % 3 == 1 ? 200 : g2Block;
        size_t size = std::min<size_t>(1 + random() % longest, stream.times.size() - at);
        count(TimedEvents{stream.times.data() + at, stream.channels.data() + at, size});
        for (size_t i = at; i < at + size; ++i) reference.add(stream.times[i], stream.channels[i]);
        at += size;
        const bool clears = random() % 16 == 0;
        for (size_t i = 0; i < works.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "event " << at << ", work " << i);
            expectSame(*works[i], reference);
            if (testing::Test::HasFatalFailure()) return;
            if (clears) clearCorrelation(*works[i]);
        }
        if (clears) reference.clear();
    }
}

struct CountCase
{
    const char *name;
    CorrelationSettings settings;
};

const CountCase cases[] = {
    {"g2", {.windowPs = 5000, .binWidthPs = 7}},
    {"g2Window", {.windowPs = 5003, .binWidthPs = 100}}, // the last part of the window has no bin
    {"g2PowerOfTwo", {.windowPs = 40'000, .binWidthPs = 64}},
    {"g2Same", {.chan2 = 1, .windowPs = 5000, .binWidthPs = 10}},
    {"g2NotNormalized", {.chan1 = 2, .chan2 = 1, .windowPs = 3000, .binWidthPs = 50, .normalize = false}},
    {"g2OtherChannel", {.chan1 = 3, .chan2 = 300, .windowPs = 3000, .binWidthPs = 50}},
    {"g2NoBins", {.windowPs = 90, .binWidthPs = 100}},
    {"fcs", {.mode = Mode::FCS, .windowPs = 100'000, .minLagPs = 100, .steps = 12}},
    {"fcsLongFirst", {.mode = Mode::FCS, .windowPs = 100'000, .minLagPs = 5000, .steps = 7}},
    {"fcsSame", {.mode = Mode::FCS, .chan2 = 1, .windowPs = 50'000, .minLagPs = 50, .steps = 10}},
    {"fcsFromOne", {.mode = Mode::FCS, .windowPs = 20'000, .minLagPs = 1, .steps = 60}},
    // More lags than pairs: counted one by one, and by ranks beyond.
    {"fcsFine", {.mode = Mode::FCS, .windowPs = 60'000, .minLagPs = 20, .steps = 300}},
    {"fcsOneLag", {.mode = Mode::FCS, .windowPs = 1000, .minLagPs = 2000, .steps = 10}},
    {"fcsMarker", {.mode = Mode::FCS, .chan2 = 129, .windowPs = 20'000, .minLagPs = 100, .steps = 10}},
    {"ffcs", {.mode = Mode::FFCS, .windowPs = 100'000, .minLagPs = 100, .steps = 12}},
    {"ffcsSame", {.mode = Mode::FFCS, .chan2 = 1, .windowPs = 50'000, .minLagPs = 50, .steps = 10}},
    {"ffcsFromOne", {.mode = Mode::FFCS, .windowPs = 20'000, .minLagPs = 1, .steps = 60}},
    {"ffcsRoundLags", {.mode = Mode::FFCS, .windowPs = 100'000, .minLagPs = 100, .steps = 3}},
    {"ffcsOneLag", {.mode = Mode::FFCS, .windowPs = 1000, .minLagPs = 2000, .steps = 10}},
};

class CorrelationCount : public testing::TestWithParam<StreamShape>
{
};

} // namespace

TEST_P(CorrelationCount, IsThatOfTheReference)
{
    const Streamed stream = makeStream(GetParam(), 12'000, 11);
    for (const CountCase &given : cases) {
        SCOPED_TRACE(given.name);
        Works works{workOf(given.settings)}; // of the plain loops, and one for each instruction set
        forEachSimdTarget([&] { works.push_back(workOf(given.settings)); });
        compare(given.settings, works, stream, 5, [&](TimedEvents piece) {
            auto work = works.begin();
            countCorrelationPlain(**work++, piece);
            forEachSimdTarget([&] { countCorrelation(**work++, piece); });
        });
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, CorrelationCount, testing::ValuesIn(shapes),
                         [](const auto &shape) { return shape.param.name; });

// A long ordered stream: the rings move back while cursors point into them.
TEST(CorrelationCount, RingsMoveUnderTheCursors)
{
    const StreamShape shape{.name = "long", .meanGapPs = 300, .grid = 10, .channel1Share = 0.97};
    const Streamed stream = makeStream(shape, 1'400'000, 13);
    const CorrelationSettings both[] = {{.mode = Mode::FCS, .windowPs = 5000, .steps = 5},
                                        {.mode = Mode::FFCS, .windowPs = 2'000'000, .steps = 5}};
    for (const CorrelationSettings &settings : both) {
        auto blocks = workOf(settings), events = workOf(settings);
        std::mt19937_64 random(14);
        stream.inPieces(g2Block, random, [&](auto times, auto channels, size_t count) {
            countCorrelation(*blocks, {times, channels, count});
            countCorrelationPlain(*events, {times, channels, count});
        });
        EXPECT_GT(blocks->Rings[0].Base, 0u);
        for (size_t i = 0; i < 4; ++i) EXPECT_EQ(row(*blocks, i), row(*events, i));
    }
}

TEST(CorrelationCount, AStepOfASequenceEndsAtTheEventThatReachesTheCount)
{
    const Streamed stream = makeStream(shapes[1], 5'000, 14);
    CorrelationSettings settings{.windowPs = 5000, .binWidthPs = 500};
    for (uint64_t limit : {0u, 1u, 7u, 60u, 100'000u}) {
        SCOPED_TRACE(limit);
        auto work = workOf(settings);
        ReferenceCorrelation reference(settings);
        for (size_t at = 0; at < stream.times.size();) {
            bool reached = false;
            uint64_t taken = countG2Until(
                *work, {stream.times.data() + at, stream.channels.data() + at, stream.times.size() - at}, limit,
                reached);
            size_t expected = at;
            bool expectReached = false;
            while (expected < stream.times.size() && !expectReached) {
                reference.add(stream.times[expected], stream.channels[expected]);
                uint8_t channel = stream.channels[expected++];
                expectReached = (channel == 1 || channel == 2) && reference.reached >= limit;
            }
            ASSERT_EQ(at + taken, expected);
            ASSERT_EQ(reached, expectReached);
            expectSame(*work, reference);
            clearCorrelation(*work);
            reference.clear();
            at = expected;
        }
    }
}

TEST(CorrelationCount, ARingBeyondItsMemoryIsRefused)
{
    auto work = workOf({.mode = Mode::FCS, .windowPs = uint64_t{1} << 62, .steps = 2});
    work->Rings[0].MaxCapacity = 2 * TimeRing::MinCapacity;
    std::array<uint64_t, g2Block> times;
    std::array<uint8_t, g2Block> channels;
    channels.fill(1);
    uint64_t now = 0;
    const auto countTo = [&](uint64_t events) {
        while (now < 10 * events) {
            for (uint64_t &time : times) time = now += 10;
            countCorrelation(*work, {times.data(), channels.data(), times.size()});
        }
    };
    countTo(TimeRing::MinCapacity);
    EXPECT_GT(work->Rings[0].Capacity, TimeRing::MinCapacity) << "it has grown";
    EXPECT_THROW(countTo(2 * TimeRing::MinCapacity), std::length_error);
}
