// Real recordings as files, measured as histograms, traces and correlations of which every bin is known.
#include "runs/curves.h"
#include "support/recorded_data.h"
#include "support/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace TestSupport;

namespace {

using Mode = CorrelationSettings::Mode;

std::vector<int64_t> integers(const boost::json::value &list)
{
    return boost::json::value_to<std::vector<int64_t>>(list);
}

// A row of a result, from `begin` on, each bin the sum of `width` columns.
std::vector<int64_t> binned(const Counts &counts, size_t row, size_t begin, size_t bins, size_t width = 1)
{
    std::vector<int64_t> sums(bins);
    for (size_t i = 0; i < bins * width; ++i) sums[i / width] += counts.at(row, begin + i);
    return sums;
}

// Skips the test where the recording isn't at hand.
class Recordings : public testing::Test
{
protected:
    void openT2(const char *name, int inputs, double resolution, const std::function<int(uint8_t)> &inputOf,
                const std::function<uint64_t(uint64_t)> &unitsOf)
    {
        data = recordedData(name);
        if (!data) GTEST_SKIP() << "the recording is not at hand";
        ASSERT_FALSE(host.open(TgxFile::t2(inputs, resolution), t2Words(*data, inputOf, unitsOf)).empty());
    }
    // The detectors 0, 1, 8 and 9 are inputs 1 to 4.
    void openMolecules(bool withTimes)
    {
        data = recordedData("smfret-t3");
        if (!data) GTEST_SKIP() << "the recording is not at hand";
        if (!withTimes) data->microtimes.assign(data->microtimes.size(), 0);
        auto inputOf = [](uint8_t channel) { return channel < 2 ? channel : channel - 6; };
        ASSERT_FALSE(host.open(TgxFile::t3(4, 4.0, 1 / 13.5e-9), t3Words(*data, inputOf)).empty());
    }
    Counts trace(size_t rows, size_t bins, double seconds, uint64_t &firstBin)
    {
        setTimeTraceNumBins(nullptr, static_cast<int32_t>(bins));
        setTimeTraceHistorySize(nullptr, static_cast<double>(bins) * seconds);
        Counts counts(rows, bins);
        EXPECT_TRUE(getTimeTrace(nullptr, 0, 1, 0, counts.data.data(), &firstBin, nullptr));
        return counts;
    }
    const boost::json::value &known(const char *name) { return data->reference[name]; }

    Host host;
    std::optional<RecordedData> data;
};

int onlyInput(uint8_t)
{
    return 0;
}
int syncAndTwo(uint8_t channel)
{
    return channel == 5 ? syncInput : channel - 1;
}
uint64_t asRecorded(uint64_t time)
{
    return time;
}
uint64_t later(uint64_t time) // a reference event at time 0 would not count
{
    return time + 1'000'000;
}

} // namespace

TEST_F(Recordings, DecaysOfDiffusingMolecules)
{
    openMolecules(true);
    if (IsSkipped()) return;
    Counts counts(5, 32768);
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), nullptr);
    size_t row = 0;
    for (const char *detector : {"0", "1", "8", "9"}) {
        SCOPED_TRACE(detector);
        const auto decay = integers(known("decay_64ch_bins").at(detector));
        EXPECT_EQ(binned(counts, ++row, 0, decay.size(), 64), decay);
        EXPECT_EQ(int64_t(counts.rowSum(row)), known("counts").at(detector).as_int64());
    }
}

TEST_F(Recordings, PulsesOfASinglePhotonEmitter)
{
    openT2("qd-hbt-320mhz", 2, 1.0, syncAndTwo, later);
    if (IsSkipped()) return;
    constexpr size_t bins = 126, width = 100;
    setHistoT2NumBins(nullptr, bins);
    setHistoT2BinWidth(nullptr, width);
    setHistoT2RefChan(nullptr, 0);
    Counts counts(3, bins);
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), nullptr);
    EXPECT_EQ(binned(counts, 1, 0, bins), integers(known("sync_to_1").at("bins")));
    EXPECT_EQ(binned(counts, 2, 0, bins), integers(known("sync_to_2").at("bins")));
}

TEST_F(Recordings, TraceOfABlinkingMolecule)
{
    openT2("single-molecule-blinking", 1, 1000, onlyInput, asRecorded);
    if (IsSkipped()) return;
    const auto bins = integers(known("trace_100ms"));
    uint64_t firstBin = 0;
    const Counts counts = trace(2, 400, 0.1, firstBin);
    EXPECT_EQ(firstBin, bins.size());
    EXPECT_EQ(binned(counts, 1, 400 - bins.size(), bins.size()), bins);
    EXPECT_EQ(counts.sum(), data->times.size());
}

TEST_F(Recordings, PairsOfASinglePhotonEmitter)
{
    openT2("qd-hbt-320mhz", 2, 1.0, syncAndTwo, later);
    if (IsSkipped()) return;
    constexpr int64_t range = 60'000, width = 100;
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
    EXPECT_EQ(bins, integers(known("cross_1_to_2").at("bins")));
}

// A lone event long before the recording opens the gate at its first one, so that every pair is counted.
TEST_F(Recordings, PairsOfABlinkingMolecule)
{
    constexpr uint64_t nanosecond = 1000, shift = 40'000'000;
    openT2("single-molecule-blinking", 1, nanosecond, onlyInput, [](uint64_t time) { return time + shift; });
    if (IsSkipped()) return;
    auto words = t2Words(*data, onlyInput, [](uint64_t time) { return time + shift; });
    words.insert(words.begin(), t2Event(0, 1));
    ASSERT_FALSE(host.open(TgxFile::t2(1, nanosecond), words).empty());
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
        const auto grid = referenceGrid(given.minLag, window, given.octaves);
        curves.run();
        ASSERT_GE(curves.xSize, given.octaves);
        const auto events = static_cast<double>(data->times.size() - 1); // without the one that opens the gate
        const auto span = static_cast<double>((data->times.back() - data->times[0]) * nanosecond);
        for (size_t i = 0; i < given.octaves; ++i) {
            const auto &bin = known("fcs_auto").as_array().at(i).as_object();
            ASSERT_EQ(bin.at("lag_lo").as_int64(), int64_t{256} << i);
            const double pairs =
                (curves.y[i] + 1) * events * events * static_cast<double>(grid.widths[i]) / span;
            EXPECT_EQ(std::llround(pairs), bin.at("pairs").as_int64()) << i;
        }
    }
}

// Known are the pairs by sync number.
TEST_F(Recordings, PairsOfDiffusingMolecules)
{
    openMolecules(false);
    if (IsSkipped()) return;
    constexpr uint64_t periods = 1 << 15, periodPs = 13'500;
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
                       .windowPs = periods * periodPs,
                       .binWidthPs = periodPs,
                       .normalize = false});
        curves.run();
        const double *zero = curves.y.data() + periods;
        if (given.start == 1) {
            EXPECT_EQ(zero[0], known("zero_lag_pairs_0x8").as_int64());
        }
        for (const auto &bin : known(given.name).as_array()) {
            const auto low = bin.at("lag_lo").as_int64(), high = bin.at("lag_hi").as_int64();
            if (high > int64_t{periods}) break;
            EXPECT_EQ(std::accumulate(zero + low, zero + high, 0.0), bin.at("pairs").as_int64()) << low;
        }
    }
}
