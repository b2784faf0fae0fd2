// Correlations of real recordings whose pair counts are known.
#include "runs/curves.h"
#include "support/recorded_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>

using namespace TestSupport;

using Mode = CorrelationSettings::Mode;

TEST(CorrelationOfRecordings, PairsOfASinglePhotonEmitter)
{
    auto data = recordedData("qd-hbt-320mhz");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr int64_t range = 60'000, width = 100;
    Host host;
    auto inputOf = [](uint8_t channel) { return channel == 5 ? syncInput : channel - 1; };
    auto later = [](uint64_t time) { return time + 1'000'000; };
    ASSERT_FALSE(host.open(TgxFile::t2(2, 1.0), t2Words(*data, inputOf, later)).empty());
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
TEST(CorrelationOfRecordings, PairsOfABlinkingEmitter)
{
    auto data = recordedData("single-molecule-blinking");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr uint64_t nanosecond = 1000, shift = 40'000'000;
    data->times.insert(data->times.begin(), 0);
    data->channels.insert(data->channels.begin(), 0);
    auto onlyInput = [](uint8_t) { return 0; };
    auto unitsOf = [](uint64_t time) { return time == 0 ? 1 : time + shift; };
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2(1, nanosecond), t2Words(*data, onlyInput, unitsOf)).empty());
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

TEST(CorrelationOfRecordings, PairsOfDiffusingMolecules)
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
    ASSERT_FALSE(host.open(TgxFile::t3(4, 4.0, 1 / 13.5e-9), t3Words(*data, inputOf)).empty());
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
