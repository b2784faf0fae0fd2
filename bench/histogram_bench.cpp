// Counting of decoded events into 4 input channels and the sync. The events lie in memory, as a measurement
// thread's batch does, or in a block that stays in the second-level cache, whose pattern the branch predictor
// then knows. The plain loop looks at an event's channel and bin, and increments; in T2 it divides, and keeps
// the reference in a register. The copy beside it moves the bytes of the events.
#include "interleaved.h"
#include "measurements/histogram_count.h"
#include "plain/measurements.h"
#include "targets.h"
#include "word_streams.h"

#include <cstring>
#include <string>

using namespace Tessel;

namespace {

constexpr uint64_t StreamWords = 2 << 20;
constexpr uint64_t BlockWords = 16384;
constexpr uint64_t Rows = Bench::Inputs + 1;

// A block is counted so often that every case counts as many events.
struct Stream
{
    Bench::Events Events;
    uint64_t Turns;

    uint64_t items() const { return Events.Count * Turns; }
};

Stream eventStream(MeasMode mode, uint32_t perMille, bool inMemory)
{
    const uint64_t words = inMemory ? StreamWords : BlockWords;
    return {Bench::decoded(mode, Bench::wordStream(mode, words, perMille)), StreamWords / words};
}

// Both forms take the events and the rows that they count in.
template <class Fast, class Plain>
void compareTurns(benchmark::State &state, const Stream &stream, uint64_t numBins, const Fast &fast,
                  const Plain &plain)
{
    const Bench::Events &events = stream.Events;
    Bench::Events copy(events.Times.size());
    std::vector<uint32_t> fastCounts(Rows * numBins), plainCounts(Rows * numBins);
    const auto turns = [&](const auto &work) {
        for (uint64_t turn = 0; turn < stream.Turns; ++turn) {
            work();
            benchmark::ClobberMemory();
        }
    };
    const auto copyEvents = [&] {
        std::memcpy(copy.Times.data(), events.Times.data(), events.Count * sizeof(uint64_t));
        std::memcpy(copy.Channels.data(), events.Channels.data(), events.Count);
    };
    Bench::compare(
        state, stream.items(), [&] { turns([&] { fast(events, fastCounts.data()); }); },
        [&] { turns([&] { plain(events, plainCounts.data()); }); }, [&] { turns(copyEvents); });
    if (fastCounts != plainCounts) state.SkipWithError("other counts than the plain loop");
}

void countT3Case(benchmark::State &state, Bench::Target target, uint32_t perMille, bool inMemory)
{
    constexpr uint64_t numBins = 32768;
    const Bench::WithTarget only(target);
    compareTurns(
        state, eventStream(MeasMode::T3, perMille, inMemory), numBins,
        [](const Bench::Events &events, uint32_t *histo) {
            countT3(events.Times.data(), events.Channels.data(), events.Count, histo, numBins, Rows);
        },
        [](const Bench::Events &events, uint32_t *histo) {
            Plain::countT3(events.Times.data(), events.Channels.data(), events.Count, histo, numBins, Rows);
        });
}

void countT2Case(benchmark::State &state, Bench::Target target, uint32_t perMille, bool inMemory)
{
    constexpr uint64_t numBins = 65536;
    const Bench::WithTarget only(target);
    uint64_t lastRefTime = 0, plainLastRefTime = 0;
    volatile uint64_t chosen = 25; // unknown to the compiler, as in a run
    const uint64_t binWidth = chosen;
    const T2Counting counting{
        .LastRefTime = lastRefTime, .RefChan = 0, .BinWidth = binWidth, .NumBins = numBins, .Rows = Rows};
    compareTurns(
        state, eventStream(MeasMode::T2, perMille, inMemory), numBins,
        [&](const Bench::Events &events, uint32_t *histo) {
            countT2(events.Times.data(), events.Channels.data(), events.Count, histo, counting);
        },
        [&](const Bench::Events &events, uint32_t *histo) {
            plainLastRefTime = Plain::countT2(
                events.Times.data(), events.Channels.data(), events.Count, histo,
                {.reference = 0, .binWidth = binWidth, .numBins = numBins, .rows = Rows}, plainLastRefTime);
        });
}

const int registered = [] {
    for (const bool isT2 : {false, true})
        for (const Bench::Target &target : Bench::targets())
            for (const uint32_t perMille : {2u, 70u, 360u})
                for (const bool inMemory : {false, true})
                    benchmark::RegisterBenchmark(
                        (Bench::caseName(isT2 ? "countT2" : "countT3", perMille, inMemory) + target.Suffix)
                            .c_str(),
                        isT2 ? countT2Case : countT3Case, target, perMille, inMemory)
                        ->UseManualTime()
                        ->Unit(benchmark::kMillisecond)
                        ->Iterations(41);
    return 0;
}();

} // namespace
