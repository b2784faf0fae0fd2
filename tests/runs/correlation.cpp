// Whole replays into correlations, through tessel.h, against a reference written apart and against recordings
// whose pair counts are known.
#include "support/host.h"
#include "support/recorded_data.h"
#include "support/reference.h"
#include "support/reference_correlation.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

using namespace TestSupport;

namespace {

using Mode = CorrelationSettings::Mode;

constexpr int channels = 4;
constexpr uint64_t resolutionPs = 5, periodPs = 12'500;
constexpr double untouched = -7.25;

// Light in bursts on four inputs, with syncs (T2), markers and overflows; a pause beyond most windows.
std::vector<uint32_t> burstWords(size_t count, bool t3, uint32_t seed)
{
    const uint64_t wrap = t3 ? 1 << 10 : 1 << 25;
    std::mt19937 random(seed);
    std::vector<uint32_t> words;
    uint64_t now = 0, wraps = 0;
    for (size_t i = 0; i < count; ++i) {
        now += random() % (random() % 8 == 0 ? 4000 : 60);
        if (i == count / 2) now += 40 * wrap;
        for (uint64_t left = now / wrap - wraps; left > 0; left = now / wrap - wraps) {
            auto step = static_cast<uint32_t>(std::min<uint64_t>(left, 3));
            words.push_back(t3 ? t3Overflow(step) : t2Overflow(step));
            wraps += step;
        }
        auto low = static_cast<uint32_t>(now % wrap), channel = static_cast<uint32_t>(random() % channels);
        if (random() % 50 == 0)
            words.push_back(t3 ? t3Marker(1 + random() % 4, low, 0) : t2Marker(1 + random() % 4, low));
        else if (!t3 && random() % 10 == 0)
            words.push_back(t2Sync(low));
        else
            words.push_back(t3 ? t3Event(channel, low, random() % 2500) : t2Event(channel, low));
    }
    return words;
}

Events decoded(const std::vector<uint32_t> &words, bool t3)
{
    if (!t3) return decodeT2(words, channels, resolutionPs);
    Events events = decodeT3(words, channels);
    for (Event &event : events) event.time = event.time / 32768 * periodPs + event.time % 32768 * resolutionPs;
    return events;
}

std::string writeFile(Host &host, const std::vector<uint32_t> &words, bool t3)
{
    auto file = t3 ? TgxFile::t3(channels, resolutionPs) : TgxFile::t2(channels, resolutionPs);
    return file.tag("HW_SerialNo", "1").records(words).write(host.folder().file("a.tgx"));
}

// Gives the parameters and returns the number of points of a curve.
uint64_t setParams(const CorrelationSettings &settings)
{
    uint64_t points = settings.mode == Mode::G2 ? settings.windowPs / settings.binWidthPs : 0;
    auto minLag = static_cast<double>(settings.minLagPs), window = static_cast<double>(settings.windowPs);
    switch (settings.mode) {
    case Mode::G2:
        EXPECT_TRUE(setG2Params(nullptr, settings.chan1, settings.chan2, window,
                                static_cast<double>(settings.binWidthPs), settings.normalize));
        break;
    case Mode::FCS:
        EXPECT_TRUE(
            setFCSParams(nullptr, settings.chan1, settings.chan2, &points, minLag, window, settings.steps));
        break;
    case Mode::FFCS:
        EXPECT_TRUE(
            setFFCSParams(nullptr, settings.chan1, settings.chan2, &points, minLag, window, settings.steps));
        break;
    }
    return points;
}

// The caller's arrays, with guards behind what is promised to be written.
struct Curves
{
    explicit Curves(const CorrelationSettings &settings)
    {
        uint64_t points = setParams(settings);
        bool g2 = settings.mode == Mode::G2;
        xSize = g2 ? 2 * points : points;
        ySize = g2 ? 2 * points : 3 * (points + 1);
        x.assign(xSize + 3, untouched);
        y.assign(ySize + 3, untouched);
    }

    void run()
    {
        EXPECT_TRUE(getCorrelation(nullptr, 0, 1, 0, y.data(), x.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(x[xSize + i], untouched);
            EXPECT_EQ(y[ySize + i], untouched);
        }
    }

    size_t xSize, ySize;
    std::vector<double> x, y;
    Finished finished;
};

struct RunCase
{
    const char *name;
    bool t3;
    CorrelationSettings settings;
    bool merged = false; // inputs 1 and 2 as channel 5
};

void PrintTo(const RunCase &given, std::ostream *out)
{
    *out << given.name;
}

class Correlation : public testing::TestWithParam<RunCase>
{
};

} // namespace

TEST_P(Correlation, IsThatOfTheReference)
{
    const RunCase &given = GetParam();
    Host host;
    const auto words = burstWords(150'000, given.t3, 23);
    ASSERT_FALSE(host.open(writeFile(host, words, given.t3)).empty());
    Events events = decoded(words, given.t3);
    if (given.merged) {
        const int32_t members[] = {1, 2};
        ASSERT_EQ(addMMerge(nullptr, members, 2, 1), 5);
        events = merge(events, {1, 2}, 5, true);
    }
    ReferenceCorrelation reference(given.settings);
    for (const Event &event : events) reference.add(event.time, event.channel);

    Curves curves(given.settings);
    curves.run();
    const auto x = reference.axis(), y = reference.curves();
    ASSERT_EQ(curves.xSize, x.size());
    ASSERT_EQ(curves.ySize, y.size());
    for (size_t i = 0; i < x.size(); ++i) ASSERT_DOUBLE_EQ(curves.x[i], x[i]) << i;
    const bool isG2 = given.settings.mode == Mode::G2;
    for (size_t i = 0; i < y.size(); ++i) {
        bool isUnused = !isG2 && i % (x.size() + 1) == x.size();
        ASSERT_EQ(curves.y[i], isUnused ? untouched : y[i]) << i;
    }
    EXPECT_GT(reference.counts[0], 1000u);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Correlation,
    testing::Values(
        RunCase{"g2", false, {.windowPs = 50'000, .binWidthPs = 50}},
        RunCase{"g2Counts", false, {.windowPs = 5000, .binWidthPs = 5, .normalize = false}},
        RunCase{"g2Auto", false, {.chan1 = 3, .chan2 = 3, .windowPs = 20'000, .binWidthPs = 30}},
        RunCase{"g2AutoCounts", true, {.chan2 = 1, .windowPs = 200'000, .binWidthPs = 500, .normalize = false}},
        RunCase{"g2Sync", false, {.chan1 = 0, .windowPs = 20'000, .binWidthPs = 20}},
        RunCase{"g2T3", true, {.windowPs = 300'000, .binWidthPs = 100}},
        RunCase{"g2Merged", true, {.chan1 = 5, .windowPs = 300'000, .binWidthPs = 100}, true},
        RunCase{"fcs", false, {.mode = Mode::FCS, .windowPs = 10'000'000, .minLagPs = 100}},
        RunCase{"fcsAuto",
                false,
                {.mode = Mode::FCS, .chan2 = 1, .windowPs = 3'000'000, .minLagPs = 1000, .steps = 25}},
        RunCase{"fcsT3", true, {.mode = Mode::FCS, .windowPs = 30'000'000, .minLagPs = 5000}},
        RunCase{"fcsMerged",
                true,
                {.mode = Mode::FCS, .chan1 = 5, .chan2 = 3, .windowPs = 30'000'000, .minLagPs = 5000},
                true},
        RunCase{"ffcs", false, {.mode = Mode::FFCS, .windowPs = 10'000'000, .minLagPs = 100}},
        RunCase{"ffcsT3", true, {.mode = Mode::FFCS, .windowPs = 30'000'000, .minLagPs = 5000}},
        RunCase{"ffcsMerged",
                true,
                {.mode = Mode::FFCS, .chan1 = 5, .chan2 = 5, .windowPs = 30'000'000, .minLagPs = 5000},
                true}),
    [](const auto &given) { return given.param.name; });

TEST(CorrelationRun, WithoutAResultTheArraysStayAsTheyAre)
{
    const struct
    {
        const char *name;
        CorrelationSettings settings;
    } cases[] = {
        {"channels without events", {.chan1 = 60, .chan2 = 300}},
        {"a window below the bin width", {.windowPs = 20, .binWidthPs = 100}},
        {"a longest lag below the shortest", {.mode = Mode::FCS, .windowPs = 100, .minLagPs = 1000}},
        {"a longest lag beyond the stream", {.mode = Mode::FFCS, .windowPs = uint64_t{1} << 60, .steps = 9}},
    };
    Host host;
    ASSERT_FALSE(host.open(writeFile(host, burstWords(20'000, false, 3), false)).empty());
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Curves curves(given.settings);
        curves.run();
        EXPECT_EQ(curves.y, std::vector<double>(curves.y.size(), untouched));
    }
    Finished finished;
    setG2Params(nullptr, 1, 2, NAN, INFINITY, 1);
    EXPECT_TRUE(getCorrelation(nullptr, 0, 1, 0, nullptr, nullptr, finished.get()));
    EXPECT_TRUE(finished.isSet());
    EXPECT_TRUE(setFCSParams(nullptr, 1, 2, nullptr, -INFINITY, INFINITY, UINT64_MAX));
    EXPECT_TRUE(setFFCSParams(nullptr, 1, 2, nullptr, NAN, 1e300, 0));
    EXPECT_EQ(host.logged("ERR"), 0u);
}

TEST(CorrelationRun, ClearEmptiesTheCurves)
{
    Host host;
    ASSERT_FALSE(host.open(writeFile(host, burstWords(20'000, false, 4), false)).empty());
    for (Mode mode : {Mode::G2, Mode::FCS}) {
        Curves curves({.mode = mode, .windowPs = 1'000'000, .binWidthPs = 1000, .steps = 12});
        curves.run();
        EXPECT_NE(curves.y[curves.ySize / 2], 0.0);
        EXPECT_TRUE(clearMeasure(nullptr));
        for (size_t i = 0; i < curves.y.size(); ++i) EXPECT_EQ(curves.y[i], i < curves.ySize ? 0.0 : untouched);
    }
}

// Pairs of an event with those of a step before it count in its own step: together the steps hold every pair.
TEST(CorrelationRun, TheStepsOfASequenceHoldEveryPairOnce)
{
    const struct
    {
        const char *name;
        int32_t mode;
        double value;
    } cases[] = {{"by time", 1, 1e-3}, {"by count", 2, 25}};
    const auto words = burstWords(60'000, false, 5);
    const CorrelationSettings settings{.windowPs = 20'000, .binWidthPs = 1000, .normalize = false};
    ReferenceCorrelation reference(settings);
    for (const Event &event : decoded(words, false)) reference.add(event.time, event.channel);
    const auto whole = reference.curves();
    Host host;
    ASSERT_FALSE(host.open(writeFile(host, words, false)).empty());
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        setSequenceMode(given.mode, 1, given.value);
        Curves curves(settings);
        std::fill(curves.y.begin(), curves.y.end(), 0.0);
        std::vector<double> sum(whole.size());
        size_t steps = 0;
        getCorrelation(nullptr, 0, 0, 0, curves.y.data(), curves.x.data(), curves.finished.get());
        while (waitNewData(nullptr)) {
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += curves.y[i];
            ++steps;
            gotNewData(nullptr);
        }
        EXPECT_TRUE(curves.finished.wait());
        EXPECT_EQ(sum, whole);
        EXPECT_GT(steps, 5u);
    }
    setSequenceMode(0, 0, 0);
}

// A step of FCS ends with the event after SequenceCount further ones, whatever they are.
TEST(CorrelationRun, ASequenceOfFcsCountsEventsOfAllKinds)
{
    const auto words = burstWords(30'000, true, 6);
    Host host;
    ASSERT_FALSE(host.open(writeFile(host, words, true)).empty());
    setSequenceMode(2, 1, 5000);
    Curves curves({.mode = Mode::FFCS, .windowPs = 10'000'000, .minLagPs = 1000, .steps = 10});
    size_t steps = 0;
    getCorrelation(nullptr, 0, 0, 0, curves.y.data(), nullptr, curves.finished.get());
    while (waitNewData(nullptr)) {
        ++steps;
        gotNewData(nullptr);
    }
    EXPECT_TRUE(curves.finished.wait());
    EXPECT_EQ(steps, (decoded(words, true).size() - 1) / 5000 + 1);
    setSequenceMode(0, 0, 0);
}

TEST(CorrelationRun, PairsOfASinglePhotonEmitter)
{
    auto data = recordedData("qd-hbt-320mhz");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr int64_t range = 60'000, width = 100;
    Host host;
    auto inputOf = [](uint8_t channel) { return channel == 5 ? syncInput : channel - 1; };
    auto later = [](uint64_t time) { return time + 1'000'000; };
    ASSERT_FALSE(host.open(TgxFile::t2(2, 1.0)
                               .tag("HW_SerialNo", "1")
                               .records(t2Words(*data, inputOf, later))
                               .write(host.folder().file("emitter.tgx")))
                     .empty());
    // Bins of 1 ps, so that each delay is known exactly.
    Curves curves({.chan1 = 2, .chan2 = 1, .windowPs = range + 1, .binWidthPs = 1, .normalize = false});
    curves.run();
    std::vector<int64_t> bins(2 * range / width);
    const double *zero = curves.y.data() + range + 1;
    EXPECT_EQ(zero[0], 0);
    for (int64_t delay = 0; delay < range; ++delay)
        bins[static_cast<size_t>((delay + range) / width)] += static_cast<int64_t>(zero[delay]);
    for (int64_t delay = 1; delay <= range; ++delay)
        bins[static_cast<size_t>((range - delay) / width)] += static_cast<int64_t>(zero[-1 - delay]);
    EXPECT_EQ(bins, boost::json::value_to<std::vector<int64_t>>(data->reference["cross_1_to_2"].at("bins")));
}

// A lone event long before the recording opens the gate at its first one, so that every pair is counted.
TEST(CorrelationRun, PairsOfABlinkingEmitter)
{
    auto data = recordedData("single-molecule-blinking");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr uint64_t nanosecond = 1000, shift = 40'000'000;
    data->times.insert(data->times.begin(), 0);
    data->channels.insert(data->channels.begin(), 0);
    auto unitsOf = [](uint64_t time) { return time == 0 ? 1 : time + shift; };
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2(1, nanosecond)
                               .tag("HW_SerialNo", "1")
                               .records(t2Words(
                                   *data, [](uint8_t) { return 0; }, unitsOf))
                               .write(host.folder().file("blinking.tgx")))
                     .empty());
    const auto &known = data->reference["fcs_auto"].as_array();
    // A bin of FCS leaves its lower end out: 1 ps less holds the same whole nanoseconds, up to 2^9 ps.
    const struct
    {
        Mode mode;
        uint64_t minLag, octaves;
    } cases[] = {{Mode::FFCS, 256'000, 14}, {Mode::FCS, 255'999, 9}};
    for (const auto &given : cases) {
        const uint64_t window = given.minLag << given.octaves;
        Curves curves({.mode = given.mode,
                       .chan2 = 1,
                       .windowPs = window,
                       .minLagPs = given.minLag,
                       .steps = given.octaves});
        auto grid = referenceGrid(given.minLag, window, given.octaves);
        curves.run();
        ASSERT_GE(curves.xSize, given.octaves);
        auto events = static_cast<double>(data->times.size() - 2); // neither the lone one nor that after it
        auto span = static_cast<double>((data->times.back() - data->times[1]) * nanosecond);
        for (size_t i = 0; i < given.octaves; ++i) {
            SCOPED_TRACE(i);
            const auto &bin = known.at(i).as_object();
            ASSERT_EQ(bin.at("lag_lo").as_int64(), int64_t{256} << i);
            double pairs = (curves.y[i] + 1) * events * events * static_cast<double>(grid.widths[i]) / span;
            EXPECT_EQ(std::llround(pairs), bin.at("pairs").as_int64());
        }
    }
}

TEST(CorrelationRun, PairsOfDiffusingMolecules)
{
    auto data = recordedData("smfret-t3");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr uint64_t periods = 1 << 15, molecularPeriodPs = 13'500;
    const uint8_t detectors[] = {0, 1, 8, 9};
    auto inputOf = [&](uint8_t channel) {
        return static_cast<int>(std::find(std::begin(detectors), std::end(detectors), channel) - detectors);
    };
    data->microtimes.assign(data->microtimes.size(), 0); // known are the pairs by sync number
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t3(4, 4.0, 1 / 13.5e-9)
                               .tag("HW_SerialNo", "1")
                               .records(t3Words(*data, inputOf))
                               .write(host.folder().file("molecules.tgx")))
                     .empty());
    const int32_t green[] = {1, 3}, red[] = {2, 4};
    ASSERT_EQ(addMMerge(nullptr, green, 2, 1), 5);
    ASSERT_EQ(addMMerge(nullptr, red, 2, 1), 6);
    const struct
    {
        const char *name;
        uint64_t start, stop;
    } cases[] = {{"fcs_0x8", 1, 3}, {"fcs_green_x_red", 5, 6}};
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Curves curves({.chan1 = given.stop,
                       .chan2 = given.start,
                       .windowPs = periods * molecularPeriodPs,
                       .binWidthPs = molecularPeriodPs,
                       .normalize = false});
        curves.run();
        const double *zero = curves.y.data() + periods;
        if (given.start == 1) {
            EXPECT_EQ(zero[0], data->reference["zero_lag_pairs_0x8"].as_int64());
        }
        for (const auto &bin : data->reference[given.name].as_array()) {
            auto low = bin.at("lag_lo").as_int64(), high = bin.at("lag_hi").as_int64();
            if (high > int64_t{periods}) break;
            EXPECT_EQ(std::accumulate(zero + low, zero + high, 0.0), bin.at("pairs").as_int64()) << low;
        }
    }
}
