// A run goes by what was set when it was asked for: what the host sets and adds behind that is for the next
// one, and no reason to write elsewhere than into the arrays that were given.
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>

using namespace TestSupport;

namespace {

constexpr uint32_t channels = 2;

void addRow()
{
    const int32_t members[] = {1, 2};
    addMMerge(nullptr, members, 2, 1);
}

struct RunCase
{
    const char *name;
    size_t elements; // of the result, in counts
    std::function<void()> set;
    std::function<void(void *result, uint8_t waitFinished, uint8_t *finished)> run;
    std::function<void()> change; // to what would break a run, or overrun its result
};

const std::array cases = {
    RunCase{"histogram", (channels + 1) * 500, [] { setHistoT2NumBins(nullptr, 500); },
            [](void *result, uint8_t wait, uint8_t *finished) {
                getHistogram(nullptr, 0, wait, 0, static_cast<uint32_t *>(result), finished);
            },
            [] {
                setHistoT2BinWidth(nullptr, 0);
                setHistoT2NumBins(nullptr, 5000);
                addRow();
            }},
    RunCase{"two-dimensional histogram", 50 * 50,
            [] { setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 20'000'000, 20'000'000, 50, 50); },
            [](void *result, uint8_t wait, uint8_t *finished) {
                get2dHistogram(nullptr, 0, wait, 0, static_cast<uint32_t *>(result), finished);
            },
            [] { setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 0, 0, 5000, 50); }},
    RunCase{"time trace", (channels + 1) * 100,
            [] {
                setTimeTraceNumBins(nullptr, 100);
                setTimeTraceHistorySize(nullptr, 1600);
            },
            [](void *result, uint8_t wait, uint8_t *finished) {
                getTimeTrace(nullptr, 0, wait, 0, static_cast<uint32_t *>(result), nullptr, finished);
            },
            [] {
                setTimeTraceNumBins(nullptr, 10'000);
                setTimeTraceHistorySize(nullptr, 0);
                addRow();
            }},
    RunCase{"correlation", 2 * 100 * 2, [] { setG2Params(nullptr, 1, 2, 100'000'000, 1'000'000, 0); },
            [](void *result, uint8_t wait, uint8_t *finished) {
                getCorrelation(nullptr, 0, wait, 0, static_cast<double *>(result), nullptr, finished);
            },
            [] { setG2Params(nullptr, 1, 2, 100'000'000, 1'000, 0); }},
};

} // namespace

TEST(ParametersOfARun, AreThoseOfItsStart)
{
    for (const RunCase &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        auto words = randomWords({100'000, false, 0.07, channels, 9});
        ASSERT_FALSE(host.open(TgxFile::t2(channels, 1000)
                                   .tag("HW_SerialNo", "1")
                                   .records(words)
                                   .write(host.folder().file("a.tgx")))
                         .empty());
        given.set();
        std::vector<uint32_t> expected(given.elements), result(20 * given.elements, 7);
        Finished finished;
        given.run(expected.data(), 1, finished.get());
        given.run(result.data(), 0, finished.get());
        given.change();
        ASSERT_TRUE(finished.wait());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), result.begin()));
        EXPECT_EQ(std::count(result.begin() + static_cast<ptrdiff_t>(given.elements), result.end(), 7u),
                  static_cast<ptrdiff_t>(19 * given.elements));
        EXPECT_EQ(host.logged("ERR"), 0u);
    }
}

// The run stands still, so nobody counts meanwhile.
TEST(ClearMeasure, EmptiesTheResultOfARun)
{
    for (const RunCase &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        ASSERT_FALSE(
            host.open(TgxFile::t2(channels, 1000), randomWords({100'000, false, 0.07, channels, 9})).empty());
        given.set();
        setSequenceMode(2, 1, 5);
        std::vector<uint32_t> result(given.elements);
        const std::vector<uint32_t> empty(given.elements);
        Finished finished;
        given.run(result.data(), 0, finished.get());
        ASSERT_EQ(waitNewData(nullptr), 1);
        EXPECT_NE(result, empty);
        EXPECT_TRUE(clearMeasure(nullptr));
        EXPECT_EQ(result, empty);
        setSequenceMode(0, 0, 0);
        gotNewData(nullptr);
        ASSERT_TRUE(finished.wait());
    }
}
