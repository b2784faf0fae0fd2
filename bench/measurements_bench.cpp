// The measurements beside the histogram: the time trace against a division and an increment for each event,
// pairs against the loop over single events, the unfold block against a copy of the same bytes. Every result is
// first compared with that of the plain form.
#include "interleaved.h"
#include "measurements/histogram_2d_count.h"
#include "measurements/time_trace_count.h"
#include "measurements/unfold.h"
#include "plain/measurements.h"
#include "targets.h"
#include "word_streams.h"

#include <cstring>
#include <string>

using namespace Tessel;

namespace {

constexpr uint64_t StreamWords = 2 << 20;
constexpr uint64_t Rows = Bench::Inputs + 1;
constexpr double Resolution = 4; // ps
constexpr uint64_t PeriodPs = 12'500;

using Bench::Events;

// T3: `syncs` sync periods from photon to photon in the mean.
Events eventStream(MeasMode mode, uint32_t syncs)
{
    auto words = Bench::wordStream(mode, StreamWords, 2);
    if (mode == MeasMode::T3) {
        uint32_t sync = 0;
        for (uint32_t &word : words) {
            if (word >> 25 == 127) continue; // an overflow record, whose low bits are a number of overflows
            const uint32_t next = sync + word % (2 * syncs);
            word = next < 1024 ? (word & ~0x3FFu) | next : 1u << 31 | 63u << 25 | 1;
            sync = next % 1024;
        }
    }
    return Bench::decoded(mode, words);
}

// Calls `work` with the time of a stream in this mode.
template <class Work>
void withTimeOf(MeasMode mode, const Work &work)
{
    const StreamFacts facts{.Mode = mode, .SyncPeriodPs = PeriodPs, .Resolution = Resolution};
    withTime(facts, work);
}

template <class Fast, class Plain>
void compareWithCopy(benchmark::State &state, const Events &events, const Fast &fast, const Plain &plain)
{
    Events copy(events.Times.size());
    Bench::compare(state, events.Count, fast, plain, [&] {
        std::memcpy(copy.Times.data(), events.Times.data(), events.Count * sizeof(uint64_t));
        std::memcpy(copy.Channels.data(), events.Channels.data(), events.Count);
        benchmark::ClobberMemory();
    });
}

// The bins that the plain trace has must be among those of the window.
bool isSameTrace(TimeTraceWork &window, const Plain::TraceLoop &plain)
{
    std::vector<uint32_t> given(Rows * plain.bins);
    giveOutTrace(window, given.data(), Rows, true);
    const uint64_t end = window.FirstBin; // of the bins given
    for (uint64_t bin = plain.first; bin < end; ++bin)
        for (uint64_t row = 0; row < Rows; ++row)
            if (given[row * plain.bins + plain.bins - (end - bin)] !=
                plain.trace[(bin - plain.first) * Rows + row])
                return false;
    return end > plain.first && end - plain.first <= plain.bins;
}

void timeTrace(benchmark::State &state, Bench::Target target, MeasMode mode, uint64_t width)
{
    constexpr uint64_t bins = 10'000;
    const Bench::WithTarget only(target);
    const Events events = eventStream(mode, 8);
    TimeTraceWork work;
    work.BinWidth = width;
    work.allocate(Rows, bins);
    Plain::TraceLoop plain{bins, width, Rows, {mode == MeasMode::T3, PeriodPs, Resolution}};
    withTimeOf(mode, [&](const auto &time) {
        auto countFast = [&] {
            timeTraceCount(work, time, events.Times.data(), events.Channels.data(), events.Count);
        };
        auto countPlain = [&] { plain.count(events.Times.data(), events.Channels.data(), events.Count); };
        countFast();
        countPlain();
        if (!isSameTrace(work, plain)) return state.SkipWithError("differs from the plain loop");
        compareWithCopy(state, events, countFast, countPlain);
    });
}

void histogram2d(benchmark::State &state, MeasMode mode, double slope, uint32_t syncs)
{
    const Events events = eventStream(mode, syncs);
    const bool isT2 = mode == MeasMode::T2;
    PairRules rules{{}, static_cast<uint64_t>(Resolution)};
    rules.Params.H2dNumBinsX = rules.Params.H2dNumBinsY = 256;
    rules.Params.H2dBinWidthX = rules.Params.H2dBinWidthY = isT2 ? 500 : 1000;
    rules.Params.H2dSlope = slope;
    const Plain::PairSettings settings{.widthX = rules.Params.H2dBinWidthX,
                                       .widthY = rules.Params.H2dBinWidthY,
                                       .binsX = 256,
                                       .binsY = 256,
                                       .slope = slope};
    Plain::Events plainEvents;
    for (uint64_t i = 0; i < events.Count; ++i) plainEvents.push_back({events.Times[i], events.Channels[i]});
    std::vector<uint32_t> fast(256 * 256);
    withTimeOf(mode, [&](const auto &time) {
        auto countFast = [&] {
            PairSearch search;
            histogram2dCount(search, rules, time, events.Times.data(), events.Channels.data(), events.Count,
                             Rows, fast.data());
            benchmark::ClobberMemory();
        };
        auto countPlain = [&] {
            auto counts = Plain::pairHistogram(plainEvents, Rows, settings, {!isT2, PeriodPs, Resolution});
            benchmark::DoNotOptimize(counts);
            return counts;
        };
        countFast();
        if (fast != countPlain()) return state.SkipWithError("differs from the plain loop");
        compareWithCopy(state, events, countFast, countPlain);
    });
}

void unfold(benchmark::State &state)
{
    const Events events = eventStream(MeasMode::T3, 8);
    Events block(StreamWords);
    uint64_t count = 0;
    auto place = [&] {
        uint64_t done = 0;
        count = 0;
        placeEvents({block.Times.data(), block.Channels.data(), StreamWords, &count}, {.MayWait = true},
                    {events.Times.data(), events.Channels.data(), events.Count}, done);
        benchmark::ClobberMemory();
    };
    auto oneByOne = [&] {
        for (uint64_t i = 0; i < events.Count; ++i) {
            block.Times[i] = events.Times[i];
            block.Channels[i] = events.Channels[i];
            benchmark::ClobberMemory();
        }
    };
    place();
    const auto isSame = [&](const auto &in, const auto &out) {
        return std::equal(in.begin(), in.begin() + static_cast<ptrdiff_t>(events.Count), out.begin());
    };
    if (count != events.Count || !isSame(events.Times, block.Times) || !isSame(events.Channels, block.Channels))
        return state.SkipWithError("differs from the stream");
    compareWithCopy(state, events, place, oneByOne);
}

const int registered = [] {
    auto configure = [](auto *bench) { bench->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(31); };
    const struct
    {
        const char *name;
        uint64_t width; // ps
    } widths[] = {{"1ms", 1'000'000'000}, {"10us", 10'000'000}, {"1us", 1'000'000}, {"100ns", 100'000}};
    for (const bool isT2 : {true, false}) {
        const MeasMode mode = isT2 ? MeasMode::T2 : MeasMode::T3;
        const std::string suffix = isT2 ? "T2" : "T3";
        for (const Bench::Target &target : Bench::targets())
            for (const auto &width : widths)
                configure(benchmark::RegisterBenchmark(
                    ("timeTrace" + suffix + "/" + width.name + target.Suffix).c_str(), timeTrace, target, mode,
                    width.width));
        for (const double slope : {0.0, 0.25})
            for (const uint32_t syncs : isT2 ? std::vector<uint32_t>{1} : std::vector<uint32_t>{1, 8})
                configure(benchmark::RegisterBenchmark(("histogram2d" + suffix +
                                                        (slope == 0 ? "/straight" : "/sheared") +
                                                        (syncs > 1 ? "/few pairs" : ""))
                                                           .c_str(),
                                                       histogram2d, mode, slope, syncs));
    }
    configure(benchmark::RegisterBenchmark("unfold", unfold));
    return 0;
}();

} // namespace
