// A replay gives the same result whatever the timing: on a machine with nothing else to do, beside threads that
// take its cores, and for a host that is slow. TESSEL_TEST_REPEATS sets how often each of these is repeated;
// without it the cores are taken and the host is slow at once, and only once.
#include "runs/curves.h"
#include "runs/kinds.h"
#include "support/host.h"
#include "support/random_words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr double resolution = 5, syncRate = 6.25e6;
constexpr size_t batch = 1'048'576; // records of one read

int repeats()
{
    const char *given = getenv("TESSEL_TEST_REPEATS");
    return given ? std::atoi(given) : 0;
}

// Some batches and a bit.
const std::vector<uint32_t> &wordsOf(bool t3)
{
    auto make = [](bool isT3) {
        return randomWords({.count = (isSanitized     ? 1
                                      : repeats() > 0 ? 3
                                                      : 2) *
                                         batch +
                                     12'345,
                            .t3 = isT3,
                            .overflowShare = isT3 ? 0.01 : 0.0005,
                            .channels = channels,
                            .seed = 5});
    };
    static const std::vector<uint32_t> ofT2 = make(false), ofT3 = make(true);
    return t3 ? ofT3 : ofT2;
}

// What a run has given, in order.
class Digest
{
public:
    template <class Value>
    void add(const Value *values, size_t count)
    {
        const auto *bytes = reinterpret_cast<const unsigned char *>(values);
        for (size_t i = 0; i < count * sizeof(Value); ++i) sum = (sum ^ bytes[i]) * 0x100000001B3;
    }
    template <class Value>
    void add(const std::vector<Value> &values)
    {
        add(values.data(), values.size());
    }
    uint64_t sum = 0xCBF29CE484222325;
};

// Threads that do nothing but take the cores.
class BusyThreads
{
public:
    explicit BusyThreads(int count)
    {
        for (int i = 0; i < count; ++i)
            threads.emplace_back([this] {
                while (!ends) {
                }
            });
    }
    ~BusyThreads()
    {
        ends = true;
        for (std::thread &thread : threads) thread.join();
    }

private:
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
};

enum class Timing { Idle, Busy, SlowReader, Both };

using Measure = std::function<void(Timing, Digest &)>;
using Chain = std::function<void()>;

void pause(Timing timing)
{
    if (timing >= Timing::SlowReader) std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

size_t allRows()
{
    return static_cast<size_t>(getNumAllChans(nullptr));
}

// Counts in the host's array.
Measure counted(size_t (*size)(), bool (*start)(uint32_t *, uint8_t *))
{
    return [=](Timing, Digest &digest) {
        std::vector<uint32_t> counts(size());
        Finished finished;
        start(counts.data(), finished.get());
        ASSERT_TRUE(finished.wait());
        digest.add(counts);
    };
}

Measure histogram()
{
    return counted([] { return allRows() * 65536; },
                   [](uint32_t *counts, uint8_t *finished) {
                       setHistoT2BinWidth(nullptr, 1000);
                       setHistoT2RefChan(nullptr, 2);
                       return getHistogram(nullptr, 0, 0, 0, counts, finished);
                   });
}

Measure histogram2d()
{
    return counted([] { return size_t{100 * 100}; },
                   [](uint32_t *counts, uint8_t *finished) {
                       setHisto2dParams(nullptr, 1, 2, 3, 0, 0, 1000, 1000, 100, 100);
                       return get2dHistogram(nullptr, 0, 0, 0, counts, finished);
                   });
}

Measure trace(double seconds)
{
    return [=](Timing timing, Digest &digest) {
        uint64_t firstBin = 0;
        setTimeTraceNumBins(nullptr, 1000);
        setTimeTraceHistorySize(nullptr, seconds);
        std::vector<uint32_t> counts(allRows() * 1000);
        Finished finished;
        getTimeTrace(nullptr, 0, 0, 0, counts.data(), &firstBin, finished.get());
        pause(timing);
        ASSERT_TRUE(finished.wait());
        digest.add(counts);
        digest.add(&firstBin, 1);
    };
}

Measure correlation(const CorrelationSettings &settings)
{
    return [settings](Timing, Digest &digest) {
        Curves curves(settings);
        curves.run();
        digest.add(curves.y);
    };
}

// Every event, as the host takes them.
Measure unfold(size_t capacity)
{
    return [capacity](Timing timing, Digest &digest) {
        std::vector<uint64_t> times(capacity), taken(capacity);
        std::vector<uint8_t> codes(capacity), takenCodes(capacity);
        Finished finished;
        ufStartBlock(nullptr, 0, 0, times.data(), codes.data(), capacity, finished.get());
        for (bool isLast = false; !isLast;) {
            isLast = finished.isSet();
            uint64_t count = 0;
            ufGetBlock(nullptr, taken.data(), takenCodes.data(), &count);
            for (uint64_t i = 0; i < count; ++i) { // not block by block: how much there is depends on the time
                digest.add(&taken[i], 1);
                digest.add(&takenCodes[i], 1);
            }
            pause(timing);
        }
    };
}

// Each step of a sequence.
Measure histogramSteps(int32_t mode, double value)
{
    return [=](Timing timing, Digest &digest) {
        std::vector<uint32_t> counts(allRows() * 65536);
        setSequenceMode(mode, 1, value);
        Finished finished;
        getHistogram(nullptr, 0, 0, 0, counts.data(), finished.get());
        const size_t taken = takeSteps([&] {
            digest.add(counts);
            pause(timing);
        });
        setSequenceMode(0, 0, 0);
        ASSERT_TRUE(finished.wait());
        digest.add(&taken, 1);
        EXPECT_GE(taken, isSanitized ? 1u : 3u); // there the file is shorter
    };
}

// A bin of the histogram reaches its count in the midst of the file.
Measure stopCount(uint32_t count)
{
    return [=, measure = histogram()](Timing timing, Digest &digest) {
        setStopOverflow(nullptr, count);
        measure(timing, digest);
        setStopOverflow(nullptr, 0);
    };
}

struct RepeatCase
{
    const char *name;
    bool t3;
    Chain chain;
    Measure measure;
};

const int32_t members[] = {1, 2, 3};

Chain coincidence(uint32_t mode, uint32_t timeMode, bool keep)
{
    return [=] { addMCoincidence(nullptr, members, 2, 100'000, mode, timeMode, keep); };
}

Chain delay(double ps, bool keep)
{
    return [=] { addMDelay(nullptr, 1, ps, keep); };
}

Chain herald(bool inverted, bool keep)
{
    return [=] { addMHerald(nullptr, 1, members + 1, 2, 0, 100'000, inverted, keep); };
}

Chain merge(bool keep)
{
    return [=] { addMMerge(nullptr, members, 3, keep); };
}

Chain subStream()
{
    return [] { addMSubStream(nullptr, 3'000'000'000, 90'000'000'000); };
}

// The first `count` of eight different ones.
Chain several(size_t count)
{
    const std::vector<Chain> all = {
        coincidence(0, 0, true), delay(700'000, true), herald(false, true),  merge(true),
        coincidence(1, 2, true), subStream(),          delay(30'000, false), coincidence(0, 1, true)};
    return [=] {
        for (size_t i = 0; i < count; ++i) all[i]();
    };
}

CorrelationSettings correlated(CorrelationSettings::Mode mode)
{
    CorrelationSettings settings;
    settings.mode = mode;
    settings.chan1 = 1;
    settings.chan2 = 2;
    settings.windowPs = 1'000'000;
    settings.binWidthPs = 1000;
    settings.minLagPs = 1000;
    settings.steps = 20;
    return settings;
}

std::vector<RepeatCase> cases()
{
    using Mode = CorrelationSettings::Mode;
    std::vector<RepeatCase> all;
    for (const bool t3 : {false, true}) {
        for (const uint32_t mode : {0u, 1u})
            for (const uint32_t timeMode : {0u, 1u, 2u})
                for (const bool keep : {false, true})
                    all.push_back({"coincidence", t3, coincidence(mode, timeMode, keep), histogram()});
        for (const bool keep : {false, true}) {
            all.push_back({"delay", t3, delay(700'000, keep), histogram()});
            all.push_back({"merge", t3, merge(keep), histogram()});
            for (const bool inverted : {false, true})
                all.push_back({"herald", t3, herald(inverted, keep), histogram()});
        }
        all.push_back({"sub-stream", t3, subStream(), histogram()});
        for (size_t count = 1; count <= 8; ++count)
            all.push_back({"chain", t3, several(count), unfold(count % 2 ? 100'000 : 3'000'000)});
        const Chain chain = several(3);
        all.push_back({"histogram", t3, chain, histogram()});
        all.push_back({"histogram 2d", t3, chain, histogram2d()});
        all.push_back({"trace of all", t3, chain, trace(10)});
        all.push_back({"trace of the last", t3, chain, trace(0.001)});
        for (const auto mode : {Mode::G2, Mode::FCS, Mode::FFCS})
            all.push_back({"correlation", t3, chain, correlation(correlated(mode))});
        all.push_back({"steps by count", t3, chain, histogramSteps(2, t3 ? 20 : 2000)});
        all.push_back({"stop count", t3, chain, stopCount(t3 ? 30 : 3000)});
    }
    all.push_back({"steps by time", false, several(3), histogramSteps(1, 0.02)});
    return all;
}

// The result, the last rates of all channels, and how many records were read.
uint64_t digestOf(const RepeatCase &given, Timing timing)
{
    std::unique_ptr<BusyThreads> beside;
    if (timing == Timing::Busy || timing == Timing::Both) beside = std::make_unique<BusyThreads>(3);
    Digest digest;
    clearManis(nullptr);
    given.chain();
    const int32_t rate = addMCountRate(nullptr, 1e9);
    given.measure(timing, digest);
    std::vector<uint32_t> rates(allRows());
    EXPECT_TRUE(getMCountRates(nullptr, rate, rates.data()));
    digest.add(rates);
    const double records = described("NumRecs");
    digest.add(&records, 1);
    return digest.sum;
}

std::vector<Timing> timings()
{
    if (repeats() == 0) return {Timing::Both};
    std::vector<Timing> all;
    for (int i = 0; i < repeats(); ++i) all.insert(all.end(), {Timing::Idle, Timing::Busy, Timing::SlowReader});
    return all;
}

} // namespace

TEST(Repeats, GiveTheSameWhateverTheTiming)
{
    const auto all = cases();
    for (const bool t3 : {false, true}) {
        Host host;
        auto file = t3 ? TgxFile::t3(channels, resolution, syncRate) : TgxFile::t2(channels, resolution);
        ASSERT_FALSE(host.open(file, wordsOf(t3)).empty());
        for (size_t i = 0; i < all.size(); i += isSanitized ? 5 : 1) { // there each takes seconds
            const RepeatCase &given = all[i];
            if (given.t3 != t3) continue;
            const uint64_t expected = digestOf(given, Timing::Idle);
            for (const Timing timing : timings())
                EXPECT_EQ(digestOf(given, timing), expected)
                    << given.name << (t3 ? " T3 " : " T2 ") << int(timing);
        }
    }
}
