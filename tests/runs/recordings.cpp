// Real recordings as files, replayed into histograms whose every bin is known.
#include "support/host.h"
#include "support/recorded_data.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace {

// The bins of a row, each the sum of `width` columns.
std::vector<int64_t> binned(const Counts &counts, size_t row, size_t bins, size_t width)
{
    std::vector<int64_t> sums(bins);
    for (size_t i = 0; i < bins * width; ++i) sums[i / width] += counts.at(row, i);
    return sums;
}

std::vector<int64_t> integers(const boost::json::value &list)
{
    return boost::json::value_to<std::vector<int64_t>>(list);
}

} // namespace

TEST(Recordings, DecaysOfDiffusingMolecules)
{
    auto data = recordedData("smfret-t3");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    const uint8_t detectors[] = {0, 1, 8, 9};
    auto inputOf = [&](uint8_t channel) {
        return static_cast<int>(std::find(std::begin(detectors), std::end(detectors), channel) - detectors);
    };
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t3(4, 4.0, 1 / 13.5e-9), t3Words(*data, inputOf)).empty());
    Counts counts(5, 32768);
    Finished finished;
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    for (uint8_t detector : detectors) {
        SCOPED_TRACE(int{detector});
        auto row = static_cast<size_t>(inputOf(detector)) + 1;
        auto known = integers(data->reference["decay_64ch_bins"].at(std::to_string(detector)));
        EXPECT_EQ(binned(counts, row, known.size(), 64), known);
        EXPECT_EQ(int64_t(counts.rowSum(row)),
                  data->reference["counts"].at(std::to_string(detector)).as_int64());
    }
}

TEST(Recordings, PulsesOfASinglePhotonEmitter)
{
    auto data = recordedData("qd-hbt-320mhz");
    if (!data) GTEST_SKIP() << "the recording is not at hand";
    constexpr size_t bins = 126, width = 100;
    Host host;
    auto inputOf = [](uint8_t channel) { return channel == 5 ? syncInput : channel - 1; };
    auto later = [](uint64_t time) { return time + 1'000'000; }; // a reference event at time 0 would not count
    ASSERT_FALSE(host.open(TgxFile::t2(2, 1.0), t2Words(*data, inputOf, later)).empty());
    setHistoT2NumBins(nullptr, bins);
    setHistoT2BinWidth(nullptr, width);
    setHistoT2RefChan(nullptr, 0);
    Counts counts(3, bins);
    Finished finished;
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    EXPECT_EQ(binned(counts, 1, bins, 1), integers(data->reference["sync_to_1"].at("bins")));
    EXPECT_EQ(binned(counts, 2, bins, 1), integers(data->reference["sync_to_2"].at("bins")));
}
