// A recorded file that is counted on several threads: whatever their number, the result is that of a run
// through a chain, which counts on one, to the bit.
#include "runs/kinds.h"
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

using namespace TestSupport;
constexpr size_t sliceWords = 65536; // of a file, that are counted together

namespace {

constexpr int inputs = 3;

struct Result
{
    std::vector<uint32_t> counts;
    std::vector<double> y;
    uint64_t firstBin = 0;
    double records = 0;
    uint64_t invalid = 0; // words
    std::string order;    // events that went back

    bool operator==(const Result &) const = default;
};

struct Kind
{
    const char *name;
    std::function<void(Result &, uint8_t wait, uint8_t *finished)> run;
    bool needsOrder = false; // times that go back by more than a bin scroll out what was published before them
};

void histogram(Result &result, uint8_t wait, uint8_t *finished)
{
    result.counts.assign((inputs + 1) * 65536, 7);
    getHistogram(nullptr, 0, wait, 0, result.counts.data(), finished);
}

Kind t2Histogram(const char *name, uint8_t reference)
{
    return {name, [reference](Result &result, uint8_t wait, uint8_t *finished) {
                setHistoT2RefChan(nullptr, reference);
                setHistoT2BinWidth(nullptr, 1000);
                setHistoT2NumBins(nullptr, 5000);
                histogram(result, wait, finished);
            }};
}

Kind trace(const char *name, double seconds, int bins)
{
    return {name,
            [=](Result &result, uint8_t wait, uint8_t *finished) {
                setTimeTraceHistorySize(nullptr, seconds);
                setTimeTraceNumBins(nullptr, bins);
                result.counts.assign(static_cast<size_t>((inputs + 1) * bins), 7);
                getTimeTrace(nullptr, 0, wait, 0, result.counts.data(), &result.firstBin, finished);
            },
            true};
}

Kind g2(const char *name, uint64_t first, uint64_t second, double window, double width)
{
    return {name, [=](Result &result, uint8_t wait, uint8_t *finished) {
                setG2Params(nullptr, first, second, window, width, 1);
                uint64_t columns = 0;
                tessel_getResultShape(nullptr, 16, nullptr, &columns, nullptr);
                result.y.assign(columns, 0);
                std::vector<double> x(result.y.size());
                getCorrelation(nullptr, 0, wait, 0, result.y.data(), x.data(), finished);
            }};
}

// The unit of time is 1 ns in T2; a sync period is 12.5 ns in T3.
std::vector<Kind> kinds(bool t3)
{
    std::vector<Kind> all;
    if (t3) {
        all.push_back({"histogram", histogram});
    } else {
        all.push_back(t2Histogram("histogram on the sync", 0));
        all.push_back(t2Histogram("histogram on an input", 2));
        all.push_back(t2Histogram("histogram on no channel", 9));
    }
    const double unit = t3 ? 12'500 : 1000 * 16'384.0; // about that of two events
    all.push_back(trace("trace of many events a bin", unit * 1e-12 * 5e6, 200));
    all.push_back(trace("trace of few", unit * 1e-12 * 1e4, 5000));
    all.push_back(trace("trace of one bin", unit * 1e-12 * 1e5, 1));
    all.push_back(g2("g2", 1, 2, 50 * unit, unit / 10));
    all.push_back(g2("g2 of one channel", 3, 3, 50 * unit, unit));
    all.push_back(g2("g2 beyond a slice", 1, 3, 1e5 * unit, 1e3 * unit));
    return all;
}

std::string difference(const Result &one, const Result &other)
{
    const auto at = std::ranges::mismatch(one.counts, other.counts).in1 - one.counts.begin();
    const auto inY = std::ranges::mismatch(one.y, other.y).in1 - one.y.begin();
    return fmt::format(
        "counts from {} on, y from {} on, first bins {} and {}, records {} and {}, invalid {} and {}", at, inY,
        one.firstBin, other.firstBin, one.records, other.records, one.invalid, other.invalid);
}

Result measured(const Kind &kind)
{
    Result result;
    Finished finished;
    kind.run(result, 1, finished.get());
    EXPECT_TRUE(finished.isSet());
    result.records = described("NumRecs");
    tessel_losses losses{};
    losses.size = sizeof losses;
    EXPECT_TRUE(tessel_getLosses(nullptr, &losses));
    for (const tessel_loss &place : losses.places) result.invalid += place.lost;
    std::vector<char> text(65536);
    tessel_getText(nullptr, TESSEL_TEXT_LOSSES, text.data(), text.size(), nullptr);
    const std::string all = text.data();
    result.order = all.substr(std::min(all.find("\"order\""), all.size()), 60);
    return result;
}

// In the ordinary way: a stage that changes no event. The device is of no use afterwards.
Result measuredThroughAChain(const Kind &kind)
{
    addMCountRate(nullptr, 1e6);
    Result result = measured(kind);
    closeDevice(0);
    return result;
}

// Six slices and a part of one, with what is rare where it matters.
std::vector<uint32_t> recordedWords(bool t3, bool ascending)
{
    auto words = randomWords({.count = 6 * sliceWords + 4321, .t3 = t3, .channels = inputs, .seed = 5});
    const auto overflow = t3 ? t3Overflow(2) : t2Overflow(2);
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t slice = i / sliceWords, at = i % sliceWords;
        if (at + 2 >= sliceWords || at < slice) words[i] = overflow;
        const bool isReference = words[i] >> 25 == 64 || words[i] >> 25 == 1;
        if (!t3 && isReference && slice % 3 == 1) words[i] = t2Event(0, words[i] & 0x1FFFFFF);
        if (slice == 5 && at > 60'000) words[i] = overflow; // no event at a border
    }
    if (ascending) return words;
    for (const size_t back : {size_t{1000}, 2 * sliceWords - 3, 4 * sliceWords + 77, words.size() - 10})
        for (uint32_t i = 0; i < 5; ++i) words[back + i] = t3 ? t3Event(i % 3, i, 5) : t2Event(i % 3, 100 + i);
    words[0] = t3 ? t3Event(0, 0, 0) : t2Event(0, 0); // at time 0
    for (uint32_t i = 0; i < 14; ++i) words[i * 30'000 + 7] = t3 ? t3Event(40, i, i) : t2Event(40 + i, i);
    return words;
}

class SideBySide : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override { tessel_setThreads(0); }
    void TearDown() override { tessel_setThreads(0); }

    TgxFile file() const { return GetParam() ? TgxFile::t3(inputs, 25) : TgxFile::t2(inputs, 1000); }

    // Without part of its last word.
    void open(std::vector<uint32_t> words)
    {
        const std::string path = file().records(std::move(words)).write(host.folder().file("recorded.tgx"));
        std::filesystem::resize_file(path, std::filesystem::file_size(path) - 3);
        ASSERT_FALSE(host.open(path).empty());
    }

    Host host;
};

} // namespace

TEST_P(SideBySide, ThreadsDontChangeTheResult)
{
    for (const bool ascending : {true, false}) {
        const auto words = recordedWords(GetParam(), ascending);
        for (const Kind &kind : kinds(GetParam())) {
            if (kind.needsOrder && !ascending) continue;
            SCOPED_TRACE(fmt::format("{}, ascending: {}", kind.name, ascending));
            open(words);
            const Result expected = measuredThroughAChain(kind);
            open(words);
            EXPECT_GT(expected.records, 6 * sliceWords);
            for (const int32_t threads : {1, 2, 3, 8}) {
                tessel_setThreads(threads);
                const size_t warnings = host.logged("invalid @");
                const Result result = measured(kind);
                EXPECT_TRUE(result == expected) << threads << " threads: " << difference(result, expected);
                EXPECT_EQ(host.logged("invalid @") - warnings, ascending ? 0u : 10u);
            }
            closeDevice(0);
        }
    }
}

// Where the window holds more events than one slice hands on to the next, one thread goes on, and what it reads
// again is in order, and lost only once.
TEST_P(SideBySide, WhatIsLeftOverIsReadAsIfForTheFirstTime)
{
    if (isSanitized) GTEST_SKIP() << "over a million events in a window take minutes under a sanitizer";
    auto words = randomWords(
        {.count = 40 * sliceWords, .t3 = GetParam(), .overflowShare = 0.001, .channels = 1, .seed = 7});
    for (size_t at = 100; at < words.size(); at += sliceWords)
        words[at] = GetParam() ? t3Event(40, 1, 1) : t2Event(40, 1); // invalid
    const Kind kind = g2("g2", 1, 9, 1e14, 1e9);
    open(words);
    const Result expected = measuredThroughAChain(kind);
    EXPECT_EQ(expected.invalid, 40u);
    open(words);
    for (const int32_t threads : {1, 3}) {
        tessel_setThreads(threads);
        const size_t warnings = host.logged("invalid @");
        const Result result = measured(kind);
        EXPECT_EQ(result.order, expected.order);
        EXPECT_EQ(result.invalid, expected.invalid);
        EXPECT_EQ(result.records, expected.records);
        EXPECT_EQ(host.logged("invalid @") - warnings, 10u);
    }
}

TEST_P(SideBySide, AStoppedRunHasCountedTheFileUpToSomewhere)
{
    const auto words = randomWords({.count = 8'000'000, .t3 = GetParam(), .channels = inputs, .seed = 3});
    for (const Kind &kind : kinds(GetParam())) {
        SCOPED_TRACE(kind.name);
        open(words);
        Result stopped;
        Finished finished;
        kind.run(stopped, 0, finished.get());
        EXPECT_TRUE(eventually([] { return described("NumRecs") > 0; }));
        stopMeasure(nullptr);
        EXPECT_TRUE(finished.wait());
        const auto read = static_cast<size_t>(described("NumRecs"));
        closeDevice(0);
        open({words.begin(), words.begin() + static_cast<std::ptrdiff_t>(read + 1)}); // the last is cut short
        const Result expected = measuredThroughAChain(kind);
        EXPECT_EQ(read, expected.records);
        if (host.logged("time is over for the data") > 0) continue; // a slow machine
        EXPECT_TRUE(stopped.counts == expected.counts && stopped.y == expected.y) << read << " records";
    }
}

INSTANTIATE_TEST_SUITE_P(T2T3, SideBySide, testing::Bool());
