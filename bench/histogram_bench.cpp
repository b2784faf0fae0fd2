// Counting of decoded events into 4 input channels and the sync. The events lie in memory, as a measurement
// thread's batch does, or in a block that stays in the second-level cache, whose pattern the branch predictor
// then knows. The plain loop is the one that looks at every event's channel and at the flags of publication
// behind each; the copy beside it moves the bytes of the events.
#include "interleaved.h"
#include "measurements/histogram_count.h"
#include "pipeline/records.h"
#include "word_streams.h"

#include <atomic>
#include <cstring>
#include <string>

using namespace Tessel;

namespace {

constexpr uint64_t StreamWords = 2 << 20;
constexpr uint64_t BlockWords = 16384;
constexpr uint64_t Rows = Bench::Inputs + 1;

struct Events
{
    std::vector<uint64_t> Times = std::vector<uint64_t>(StreamWords);
    std::vector<uint8_t> Channels = std::vector<uint8_t>(StreamWords);
    uint64_t Count = 0; // in one turn
    uint64_t Turns = 1;

    uint64_t items() const { return Count * Turns; }
};

Events eventStream(MeasMode mode, uint32_t perMille, bool inMemory)
{
    Events events;
    uint64_t overflowBase = 0;
    InvalidWords invalid;
    const uint64_t words = inMemory ? StreamWords : BlockWords;
    events.Turns = StreamWords / words;
    events.Count = decode(Bench::wordStream(mode, words, perMille),
                          {.Mode = mode, .NumChans = Bench::Inputs, .SyncPeriodPs = 5}, overflowBase,
                          events.Times.data(), events.Channels.data(), invalid);
    return events;
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

void plainT3(const Events &events, const Flags &flags, uint32_t *histo, uint64_t numBins, uint64_t rows)
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

void plainT2(const Events &events, const Flags &flags, uint32_t *histo, const T2Counting &counting)
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

template <class Fast, class Plain>
void compareTurns(benchmark::State &state, const Events &events, const Fast &fast, const Plain &plain)
{
    Events copy;
    const auto turns = [&](const auto &work) {
        for (uint64_t turn = 0; turn < events.Turns; ++turn) {
            work();
            benchmark::ClobberMemory();
        }
    };
    const auto copyEvents = [&] {
        std::memcpy(copy.Times.data(), events.Times.data(), events.Count * sizeof(uint64_t));
        std::memcpy(copy.Channels.data(), events.Channels.data(), events.Count);
    };
    Bench::compare(
        state, events.items(), [&] { turns(fast); }, [&] { turns(plain); }, [&] { turns(copyEvents); });
}

void countT3Case(benchmark::State &state, uint32_t perMille, bool inMemory)
{
    constexpr uint64_t numBins = 32768;
    const Events events = eventStream(MeasMode::T3, perMille, inMemory);
    const Flags flags;
    std::vector<uint32_t> histo(Rows * numBins);
    compareTurns(
        state, events,
        [&] {
            countT3(events.Times.data(), events.Channels.data(), events.Count, histo.data(), numBins, Rows);
        },
        [&] { plainT3(events, flags, histo.data(), numBins, Rows); });
}

void countT2Case(benchmark::State &state, uint32_t perMille, bool inMemory)
{
    const Events events = eventStream(MeasMode::T2, perMille, inMemory);
    const Flags flags;
    uint64_t lastRefTime = 0;
    const T2Counting counting{
        .LastRefTime = lastRefTime, .RefChan = 0, .BinWidth = 25, .NumBins = 65536, .Rows = Rows};
    std::vector<uint32_t> histo(Rows * counting.NumBins);
    compareTurns(
        state, events,
        [&] { countT2(events.Times.data(), events.Channels.data(), events.Count, histo.data(), counting); },
        [&] { plainT2(events, flags, histo.data(), counting); });
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
