// Counting of decoded events into 4 input channels and the sync. The events lie in memory, as a measurement
// thread's batch does, or in a block that stays in the second-level cache, whose pattern the branch predictor
// then knows. The plain loop is the one that looks at every event's channel and at the flags of publication
// behind each; the copy beside it moves the bytes of the events.
#include "interleaved.h"
#include "measurements/histogram_count.h"
#include "word_streams.h"

#include <atomic>
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

// What decides on publication, as a run's record holds it.
struct Flags
{
    std::atomic<bool> AbortRequested{false}, ClearRequested{false};
    std::atomic<uint32_t> SequenceMode{0};

    bool endBatch() const
    {
        return SequenceMode.load(std::memory_order_relaxed) != 0 ||
               AbortRequested.load(std::memory_order_relaxed) || ClearRequested.load(std::memory_order_relaxed);
    }
};

void plainT3(const Bench::Events &events, const Flags &flags, uint32_t *histo, uint64_t numBins, uint64_t rows)
{
    for (uint64_t i = 0; i < events.Count; ++i) {
        const uint8_t channel = events.Channels[i];
        if ((channel & 128) == 0 && channel < rows) {
            const uint64_t bin = events.Times[i] & 0x7FFF;
            if (bin < numBins) ++histo[numBins * channel + bin];
        }
        if (flags.endBatch()) break;
    }
}

void plainT2(const Bench::Events &events, const Flags &flags, uint32_t *histo, const T2Counting &counting)
{
    for (uint64_t i = 0; i < events.Count; ++i) {
        const uint8_t channel = events.Channels[i];
        if ((channel & 128) != 0 || channel >= counting.Rows) continue;
        if (counting.LastRefTime != 0) {
            const uint64_t bin = (events.Times[i] - counting.LastRefTime) / counting.BinWidth;
            if (bin < counting.NumBins) ++histo[counting.NumBins * channel + bin];
        }
        if (channel == counting.RefChan) counting.LastRefTime = events.Times[i];
        if (flags.endBatch()) break;
    }
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

void countT3Case(benchmark::State &state, uint32_t perMille, bool inMemory)
{
    constexpr uint64_t numBins = 32768;
    const Flags flags;
    compareTurns(
        state, eventStream(MeasMode::T3, perMille, inMemory), numBins,
        [](const Bench::Events &events, uint32_t *histo) {
            countT3(events.Times.data(), events.Channels.data(), events.Count, histo, numBins, Rows);
        },
        [&](const Bench::Events &events, uint32_t *histo) { plainT3(events, flags, histo, numBins, Rows); });
}

void countT2Case(benchmark::State &state, uint32_t perMille, bool inMemory)
{
    constexpr uint64_t numBins = 65536;
    const Flags flags;
    uint64_t lastRefTime = 0, plainLastRefTime = 0, binWidth = 25;
    benchmark::DoNotOptimize(binWidth); // a variable, as in a run
    const auto counting = [&](uint64_t &last) {
        return T2Counting{
            .LastRefTime = last, .RefChan = 0, .BinWidth = binWidth, .NumBins = numBins, .Rows = Rows};
    };
    compareTurns(
        state, eventStream(MeasMode::T2, perMille, inMemory), numBins,
        [&](const Bench::Events &events, uint32_t *histo) {
            countT2(events.Times.data(), events.Channels.data(), events.Count, histo, counting(lastRefTime));
        },
        [&](const Bench::Events &events, uint32_t *histo) {
            plainT2(events, flags, histo, counting(plainLastRefTime));
        });
}

const int registered = [] {
    for (const bool isT2 : {false, true})
        for (const uint32_t perMille : {2u, 70u, 360u})
            for (const bool inMemory : {false, true})
                benchmark::RegisterBenchmark(
                    Bench::caseName(isT2 ? "countT2" : "countT3", perMille, inMemory).c_str(),
                    isT2 ? countT2Case : countT3Case, perMille, inMemory)
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond)
                    ->Iterations(41);
    return 0;
}();

} // namespace
