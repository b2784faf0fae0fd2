// Whole replays into histograms, through tessel.h, against a reference written apart.
#include "support/host.h"
#include "support/random_words.h"
#include "support/reference.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace {

struct ReplayCase
{
    const char *name;
    bool t3;
    size_t words;
    double overflowShare;
    int merges; // stages in the chain
    bool keep;
};

void PrintTo(const ReplayCase &given, std::ostream *out)
{
    *out << given.name;
}

class Replay : public testing::TestWithParam<ReplayCase>
{
};

constexpr int channels = 4;
constexpr uint64_t resolution = 5;

} // namespace

TEST_P(Replay, CountsAsTheReferenceDoes)
{
    const ReplayCase &given = GetParam();
    Host host;
    auto words = randomWords({given.words, given.t3, given.overflowShare, channels, 17, false});
    auto file = given.t3 ? TgxFile::t3(channels, resolution) : TgxFile::t2(channels, resolution);
    ASSERT_FALSE(host.open(file, words).empty());

    Events events = given.t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution);
    for (int i = 0; i < given.merges; ++i) {
        const int32_t members[] = {1 + i, 2 + i};
        uint8_t output = static_cast<uint8_t>(channels + 1 + i);
        EXPECT_EQ(addMMerge(nullptr, members, 2, given.keep), output);
        events = merge(events, {uint8_t(1 + i), uint8_t(2 + i)}, output, given.keep);
    }
    size_t rows = static_cast<size_t>(getNumAllChans(nullptr));
    ASSERT_EQ(rows, size_t(channels + 1 + given.merges));
    size_t columns = given.t3 ? 32768 : 5000;
    if (!given.t3) {
        setHistoT2NumBins(nullptr, columns);
        setHistoT2BinWidth(nullptr, 3000);
        setHistoT2RefChan(nullptr, 2);
    }

    Counts counts(rows, columns);
    Finished finished;
    EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
    EXPECT_TRUE(finished.isSet());
    EXPECT_EQ(counts.data, given.t3 ? histogramT3(events, rows) : histogramT2(events, rows, columns, 3000, 2));
    EXPECT_EQ(described("NumRecs"), static_cast<double>(given.words));
    EXPECT_EQ(host.logged("overrun"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Streams, Replay,
                         testing::Values(ReplayCase{"t3Empty", true, 0, 0, 0, true},
                                         ReplayCase{"t3One", true, 1, 0, 0, true},
                                         ReplayCase{"t3", true, 100'000, 0.07, 0, true},
                                         ReplayCase{"t3Chunk", true, 1'048'576, 0.002, 0, true},
                                         ReplayCase{"t3Large", true, 9'000'001, 0.07, 0, true},
                                         ReplayCase{"t3Merged", true, 1'200'000, 0.07, 3, true},
                                         ReplayCase{"t3OnlyMerged", true, 100'000, 0.3, 3, false},
                                         ReplayCase{"t2", false, 100'000, 0.07, 0, true},
                                         ReplayCase{"t2Chunks", false, 1'200'000, 0.002, 0, true},
                                         ReplayCase{"t2Merged", false, 1'200'000, 0.36, 3, true}),
                         [](const auto &given) { return given.param.name; });
