// A run goes by what was set when it was asked for: what the host sets and adds behind that is for the next
// one, and no reason to write elsewhere than into the arrays that were given.
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
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
    int32_t kind;
    size_t elements; // of the result, in counts
    double step;     // a sequence by count then has something to give out
    std::function<void()> set;
    std::function<void(void *result, uint8_t waitFinished, uint8_t *finished)> run;
    std::function<void()> change; // to what would break a run, or overrun its result
};

const std::array cases = {
    RunCase{"histogram", 8, (channels + 1) * 500, 5,
            [] {
                setHistoT2NumBins(nullptr, 500);
                setHistoT2BinWidth(nullptr, 1);
            },
            [](void *result, uint8_t wait, uint8_t *finished) {
                getHistogram(nullptr, 0, wait, 0, static_cast<uint32_t *>(result), finished);
            },
            [] {
                setHistoT2BinWidth(nullptr, 0);
                setHistoT2NumBins(nullptr, 5000);
                addRow();
            }},
    RunCase{"two-dimensional histogram", 64, 50 * 50, 5,
            [] { setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 20'000'000, 20'000'000, 50, 50); },
            [](void *result, uint8_t wait, uint8_t *finished) {
                get2dHistogram(nullptr, 0, wait, 0, static_cast<uint32_t *>(result), finished);
            },
            [] { setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 0, 0, 5000, 50); }},
    RunCase{"time trace", 4, (channels + 1) * 100, 20'000,
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
    RunCase{"correlation", 16, 2 * 100 * 2, 5, [] { setG2Params(nullptr, 1, 2, 100'000'000, 1'000'000, 0); },
            [](void *result, uint8_t wait, uint8_t *finished) {
                getCorrelation(nullptr, 0, wait, 0, static_cast<double *>(result), nullptr, finished);
            },
            [] { setG2Params(nullptr, 1, 2, 100'000'000, 1'000, 0); }},
};

struct Shape
{
    uint64_t rows = 7, columns = 7, elementBytes = 7;
    auto operator<=>(const Shape &) const = default;
};

// What is told, if `isTold` is.
Shape shapeOf(const char16_t *id, int32_t kind, bool isTold)
{
    Shape shape;
    EXPECT_EQ(tessel_getResultShape(id, kind, &shape.rows, &shape.columns, &shape.elementBytes), isTold);
    EXPECT_EQ(tessel_getResultShape(id, kind, nullptr, nullptr, nullptr), isTold);
    return shape;
}

} // namespace

TEST(ParametersOfARun, ThatCantBeMeasuredWithEndItAtOnce)
{
    const auto trace = [](int32_t bins, double history) -> std::function<void()> {
        return [=] {
            EXPECT_TRUE(setTimeTraceNumBins(nullptr, bins));
            EXPECT_TRUE(setTimeTraceHistorySize(nullptr, history));
        };
    };
    const auto pairs = [](uint64_t widthX, uint64_t widthY, uint64_t binsX,
                          uint64_t binsY) -> std::function<void()> {
        return [=] { EXPECT_TRUE(setHisto2dParams(nullptr, 0, 1, 2, 0, 0, widthX, widthY, binsX, binsY)); };
    };
    constexpr uint64_t huge = uint64_t{1} << 40;
    const struct
    {
        const char *name;
        const RunCase &measurement;
        std::function<void()> set;
        const char *logged;
        bool isEmptied; // as a result is that has a size
    } rows[] = {
        {"histogram, width 0", cases[0], cases[0].change, "A histogram bin width of 0 ps", true},
        {"pairs, x width 0", cases[1], pairs(0, 1, 10, 10), "bin width of 0 ps", true},
        {"pairs, y width 0", cases[1], pairs(1, 0, 10, 10), "bin width of 0 ps", true},
        {"pairs, no columns", cases[1], pairs(1, 1, 0, 10), "without bins", false},
        {"pairs, no rows", cases[1], pairs(1, 1, 10, 0), "without bins", false},
        {"pairs, a product beyond 64 bits", cases[1], pairs(1, 1, huge, huge), "too many bins!", false},
        {"pairs, a product that wraps to little", cases[1], pairs(1, 1, huge << 23, 2), "too many bins!",
         false},
        {"pairs, beyond all memory", cases[1], pairs(1, 1, huge >> 9, 2), "too many bins!", false},
        {"trace, no bins", cases[2], trace(0, 1), "A time trace without bins, can't measure!", false},
        {"trace, bins below zero", cases[2], trace(-1, 1), "too many bins!", false},
        {"trace, the least number", cases[2], trace(INT32_MIN, 1e300), "too many bins!", false},
        {"trace, bins beyond memory", cases[2], trace(INT32_MAX, 1), "too many bins!", false},
        {"trace, shorter than its bins", cases[2], trace(1000, 999e-12),
         "A time trace with a bin width of 0 ps, can't measure!", true},
        {"trace, below zero", cases[2], trace(1000, -1), "bin width of 0 ps", true},
        {"trace, no number", cases[2], trace(1000, NAN), "bin width of 0 ps", true},
    };
    Host host;
    ASSERT_FALSE(
        host.open(TgxFile::t2(channels, 1000), randomWords({100'000, false, 0.07, channels, 9})).empty());
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        row.set();
        std::vector<uint32_t> result(20'000, 7);
        Finished finished;
        const size_t before = host.logged(row.logged);
        row.measurement.run(result.data(), 1, finished.get());
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(result[0], row.isEmptied ? 0u : 7u);
        EXPECT_EQ(host.logged(row.logged), before + 1);
    }
    clearManis(nullptr);
    for (const RunCase &given : cases) { // the next good run works
        given.set();
        std::vector<uint32_t> result(given.elements);
        given.run(result.data(), 1, nullptr);
        EXPECT_NE(result, std::vector<uint32_t>(given.elements)) << given.name;
        given.run(nullptr, 1, nullptr);
    }
    setTimeTraceHistorySize(nullptr, 1e300); // saturates: all in one bin
    std::vector<uint32_t> whole(300);
    cases[2].run(whole.data(), 1, nullptr);
    EXPECT_NE(whole, std::vector<uint32_t>(300));
}

TEST(ParametersOfARun, TellTheShapeOfItsResult)
{
    Host host;
    const Shape none{0, 0, 0};
    EXPECT_EQ(shapeOf(nullptr, 8, false), none); // no device yet
    ASSERT_FALSE(host.open(TgxFile::t2(channels, 1000), {}).empty());
    addRow();
    EXPECT_EQ(shapeOf(nullptr, 8, true), (Shape{channels + 2, 65536, 4}));
    setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 1, 1, 50, 40);
    EXPECT_EQ(shapeOf(nullptr, 64, true), (Shape{40, 50, 4}));
    uint64_t points = 0;
    setFCSParams(nullptr, 1, 2, &points, 1e6, 1e9, 10);
    EXPECT_EQ(shapeOf(nullptr, 16, true), (Shape{3, points + 1, 8}));
    setG2Params(nullptr, 1, 2, 1050, 100, 0);
    EXPECT_EQ(shapeOf(nullptr, 16, true), (Shape{1, 2, 8})); // bins as wide as the resolution
    setTimeTraceNumBins(nullptr, 1 << 29);                   // of 4 rows: the largest result
    EXPECT_EQ(shapeOf(nullptr, 4, true), (Shape{channels + 2, 1 << 29, 4}));
    for (const int32_t bins : {(1 << 29) + 1, -1}) {
        setTimeTraceNumBins(nullptr, bins);
        EXPECT_EQ(shapeOf(nullptr, 4, false), none) << bins;
    }
    for (const int32_t kind : {-1, 0, 1, 2, 3, 12, 32, 128})
        EXPECT_EQ(shapeOf(nullptr, kind, false), none) << kind;
    EXPECT_EQ(shapeOf(u"nobody", 8, false), none);
}

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
        const Shape shape = shapeOf(nullptr, given.kind, true);
        EXPECT_EQ(shape.rows * shape.columns * shape.elementBytes, given.elements * sizeof(uint32_t));
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
        setSequenceMode(2, 1, given.step);
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
        given.run(result.data(), 1, nullptr);
        EXPECT_NE(result, empty);
        EXPECT_TRUE(clearMeasure(nullptr)); // of a run that is over
        EXPECT_EQ(result, empty);
    }
}
