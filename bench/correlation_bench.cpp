// Pair counting of two channels of one rate each. The plain loops are those that take an event at a time and
// scan or walk its pairs as they are defined; they see the same stream turn by turn, and their counts must be
// the same in the end. A stream goes on from turn to turn, so its times are new to the branch predictor.
#include "interleaved.h"
#include "measurements/correlation_count.h"
#include "measurements/correlation_setup.h"
#include "plain/correlation.h"

#include <hwy/targets.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

using namespace Tessel;
using Plain::countCorrelationPlain;

namespace {

constexpr uint64_t Turns = 41;

struct Stream
{
    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;

    TimedEvents part(uint64_t from, uint64_t count) const
    {
        return {Times.data() + from, Channels.data() + from, count};
    }
};

// Poissonian light on channels 1 and 2.
Stream poissonian(uint64_t count, double ratePerChannel)
{
    std::mt19937_64 random(3);
    std::exponential_distribution<> gap(2 * ratePerChannel * 1e-12);
    Stream stream;
    double now = 1;
    for (uint64_t i = 0; i < count; ++i) {
        now += gap(random);
        stream.Times.push_back(static_cast<uint64_t>(now));
        stream.Channels.push_back(static_cast<uint8_t>(1 + random() % 2));
    }
    return stream;
}

template <class Count>
void countInBlocks(CorrelationWork &work, const TimedEvents &events, const Count &count)
{
    for (uint64_t at = 0; at < events.Count; at += correlationBlock)
        count(work, TimedEvents{events.Times + at, events.Channels + at,
                                std::min(correlationBlock, events.Count - at)});
}

bool isSame(const CorrelationWork &left, const CorrelationWork &right)
{
    for (size_t row = 0; row < corrRowCount; ++row)
        if (!std::equal(left.Rows[row].get(), left.Rows[row].get() + left.Lags, right.Rows[row].get()))
            return false;
    return left.CorrCounts == right.CorrCounts;
}

void g2Case(benchmark::State &state, double rate)
{
    constexpr uint64_t turnEvents = 160'000;
    const Stream stream = poissonian((Turns + 1) * turnEvents, rate);
    const CorrelationParams params{.CorrWindow = 1'000'000, .CorrBinWidth = 100};
    auto fast = setUpCorrelation(StreamFacts(), params), plain = setUpCorrelation(StreamFacts(), params);
    uint64_t fastAt = 0, plainAt = 0;
    std::vector<uint64_t> copy(turnEvents);
    Bench::compare(
        state, turnEvents,
        [&] { countInBlocks(*fast, stream.part(turnEvents * fastAt++, turnEvents), countCorrelation); },
        [&] { countInBlocks(*plain, stream.part(turnEvents * plainAt++, turnEvents), countCorrelationPlain); },
        [&] { std::memcpy(copy.data(), stream.Times.data(), turnEvents * sizeof(uint64_t)); });
    if (!isSame(*fast, *plain)) state.SkipWithError("other counts than the plain loop");
}

// A scan takes as many steps as the window holds events, so it is timed on a few of them. `x_walk` compares
// with the walk of a cursor per lag, `x_scan` with the scan.
void lagsCase(benchmark::State &state, uint32_t mode, bool withSimd)
{
    constexpr double rate = 100e3;
    constexpr uint64_t turnEvents = 8000, windowEvents = 240'000, scanned = 16;
    const Stream stream = poissonian(windowEvents + (Turns + 1) * turnEvents, rate);
    CorrelationParams params{
        .CorrMode = mode, .CorrWindow = 1'000'000'000'000, .CorrSteps = 48, .CorrMinLag = 1'000'000};
    auto fast = setUpCorrelation(StreamFacts(), params);
    params.CorrMode = CorrMode::FFCS;
    auto walked = setUpCorrelation(StreamFacts(), params);
    params.CorrMode = CorrMode::FCS;
    auto scrap = setUpCorrelation(StreamFacts(), params);
    countInBlocks(*fast, stream.part(0, windowEvents), countCorrelation);
    countInBlocks(*walked, stream.part(0, windowEvents), countCorrelationPlain);

    if (!withSimd) hwy::SetSupportedTargetsForTest(HWY_STATIC_TARGET);
    std::vector<double> fastSeconds, walkSeconds, scanSeconds;
    uint64_t at = windowEvents;
    for (auto _ : state) {
        const TimedEvents events = stream.part(at, turnEvents);
        at += turnEvents;
        walkSeconds.push_back(Bench::secondsOf([&] { countCorrelationPlain(*walked, events); }));
        fastSeconds.push_back(Bench::secondsOf([&] { countCorrelation(*fast, events); }));
        scanSeconds.push_back(Bench::secondsOf([&] {
            for (uint64_t i = 0; i < scanned; ++i)
                for (size_t row = 0; row < 2; ++row)
                    scanLags(*scrap, row, fast->Rings[row], events.Times[turnEvents - 1] + i);
        }));
        state.SetIterationTime(fastSeconds.back());
    }
    hwy::SetSupportedTargetsForTest(0);
    const double each = Bench::median(fastSeconds) / turnEvents;
    state.counters["items_per_second"] = 1 / each;
    state.counters["lags"] = static_cast<double>(fast->Lags);
    state.counters["x_walk"] = Bench::median(walkSeconds) / turnEvents / each;
    state.counters["x_scan"] = Bench::median(scanSeconds) / scanned / each;
    if (mode == CorrMode::FFCS && !isSame(*fast, *walked)) state.SkipWithError("other counts than the walk");
}

template <class... Arguments>
void registerCase(const std::string &name, Arguments... arguments)
{
    benchmark::RegisterBenchmark(name.c_str(), arguments...)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(Turns);
}

const int registered = [] {
    registerCase("g2/2x1Mcps/window:1us/bin:100ps", g2Case, 1e6);
    registerCase("g2/2x10Mcps/window:1us/bin:100ps", g2Case, 10e6);
    for (const bool withSimd : {true, false}) {
        const std::string limits = std::string("/2x100kcps/1us..1s/") + (withSimd ? "simd" : "scalar");
        registerCase("FCS" + limits, lagsCase, CorrMode::FCS, withSimd);
        registerCase("FFCS" + limits, lagsCase, CorrMode::FFCS, withSimd);
    }
    return 0;
}();

} // namespace
