// Pair counting of two channels of one rate each. The plain loops are two cursors (g2), and a cursor for each
// lag (FCS, FFCS); they see the same stream turn by turn, and their counts must be the same in the end. A
// stream goes on from turn to turn, so its times are new to the branch predictor.
#include "interleaved.h"
#include "measurements/correlation_count.h"
#include "measurements/correlation_setup.h"
#include "plain/correlation.h"
#include "targets.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <utility>

using namespace Tessel;

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

// Poissonian light on channels 1 and 2, no two events at one time.
Stream poissonian(uint64_t count, double ratePerChannel)
{
    std::mt19937_64 random(3);
    std::exponential_distribution<> gap(2 * ratePerChannel * 1e-12);
    Stream stream;
    double now = 1;
    for (uint64_t i = 0; i < count; ++i) {
        now += gap(random) + 1;
        stream.Times.push_back(static_cast<uint64_t>(now));
        stream.Channels.push_back(static_cast<uint8_t>(1 + random() % 2));
    }
    return stream;
}

void countInBlocks(CorrelationWork &work, const TimedEvents &events)
{
    const uint64_t block = blockOf(work.Params);
    for (uint64_t at = 0; at < events.Count; at += block)
        countCorrelation(
            work, TimedEvents{events.Times + at, events.Channels + at, std::min(block, events.Count - at)});
}

void g2Case(benchmark::State &state, Bench::Target target, double rate)
{
    constexpr uint64_t turnEvents = 160'000;
    const Bench::WithTarget only(target);
    const Stream stream = poissonian((Turns + 1) * turnEvents, rate);
    const CorrelationParams params{.CorrWindow = 1'000'000, .CorrBinWidth = 100};
    auto fast = setUpCorrelation(StreamFacts(), params);
    Plain::PairLoop plain(params.CorrBinWidth, fast->Lags, stream.Times.size());
    uint64_t fastAt = 0, plainAt = 0;
    std::vector<uint64_t> copy(turnEvents);
    Bench::compare(
        state, turnEvents, [&] { countInBlocks(*fast, stream.part(turnEvents * fastAt++, turnEvents)); },
        [&] {
            const TimedEvents events = stream.part(turnEvents * plainAt++, turnEvents);
            plain.count(events.Times, events.Channels, events.Count);
        },
        [&] { std::memcpy(copy.data(), stream.Times.data(), turnEvents * sizeof(uint64_t)); });
    for (size_t row = 0; row < 2; ++row)
        if (!std::ranges::equal(plain.rows[row], std::span(fast->Rows[row].get(), fast->Lags)))
            state.SkipWithError("other counts than the plain loop");
}

// Of the bins in the window; `earlier` are the counts before the measured turns. FFCS may count a pair that is
// exactly a lag old on either side of it.
bool isSame(const CorrelationWork &work, const std::vector<uint64_t> &earlier, const Plain::LagLoop &plain)
{
    uint64_t different = 0;
    for (size_t row = 0; row < corrRowCount; ++row)
        for (size_t k = 0; k + 1 < work.Lags; ++k) {
            const uint64_t counted = work.Rows[row][k] - earlier[row * work.Lags + k],
                           expected = plain.rows[row][k];
            different += counted > expected ? counted - expected : expected - counted;
        }
    return different <= (work.Params.CorrMode == CorrMode::FFCS ? 100u : 0u);
}

std::vector<uint64_t> allCounts(const CorrelationWork &work)
{
    std::vector<uint64_t> counts;
    for (const auto &row : work.Rows) counts.insert(counts.end(), row.get(), row.get() + work.Lags);
    return counts;
}

void lagsCase(benchmark::State &state, Bench::Target target, uint32_t mode, unsigned threads)
{
    constexpr double rate = 100e3;
    constexpr uint64_t turnEvents = 32'000, windowEvents = 240'000;
    const Bench::WithTarget only(target);
    const Stream stream = poissonian(windowEvents + (Turns + 1) * turnEvents, rate);
    const CorrelationParams params{
        .CorrMode = mode, .CorrWindow = 1'000'000'000'000, .CorrSteps = 48, .CorrMinLag = 1'000'000};
    auto fast = setUpCorrelation(StreamFacts(), params);
    Team helpers(threads - 1);
    fast->Helpers = &helpers;
    Plain::LagLoop plain(fast->SearchLags, stream.Times.size());
    const TimedEvents before = stream.part(0, windowEvents);
    countInBlocks(*fast, before);
    plain.count(before.Times, before.Channels, before.Count, false);
    const std::vector<uint64_t> earlier = allCounts(*fast);
    uint64_t fastAt = windowEvents, plainAt = windowEvents;
    Bench::compare(
        state, turnEvents,
        [&] { countInBlocks(*fast, stream.part(std::exchange(fastAt, fastAt + turnEvents), turnEvents)); },
        [&] {
            const TimedEvents events = stream.part(std::exchange(plainAt, plainAt + turnEvents), turnEvents);
            plain.count(events.Times, events.Channels, events.Count, true);
        },
        [] {});
    if (!isSame(*fast, earlier, plain)) state.SkipWithError("other counts than the plain loop");
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
    for (const Bench::Target &target : Bench::targets()) {
        registerCase("g2/2x1Mcps/window:1us/bin:100ps" + target.Suffix, g2Case, target, 1e6);
        registerCase("g2/2x10Mcps/window:1us/bin:100ps" + target.Suffix, g2Case, target, 10e6);
        for (const unsigned threads : {1u, 2u}) {
            const std::string suffix = target.Suffix + (threads > 1 ? "/2 threads" : "");
            registerCase("FCS/2x100kcps/1us..1s" + suffix, lagsCase, target, CorrMode::FCS, threads);
            registerCase("FFCS/2x100kcps/1us..1s" + suffix, lagsCase, target, CorrMode::FFCS, threads);
        }
    }
    return 0;
}();

} // namespace
