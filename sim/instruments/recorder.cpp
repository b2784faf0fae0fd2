// Words and histograms. One thread.
#include "sim/instruments/recorder.h"

#include <algorithm>
#include <cstring>

namespace Tessel::Sim {

namespace {

constexpr uint64_t dtimes = 32768; // of a T3 word

// The number of the last sync at or before a time; the guess is off by one at most.
uint64_t syncBefore(const SyncClock &sync, uint64_t timePs)
{
    auto number = static_cast<uint64_t>(static_cast<double>(timePs) * sync.PerPs);
    while (number > 0 && timeOf(sync.Times, number, 0) > timePs) --number;
    while (timeOf(sync.Times, number + 1, 0) <= timePs) ++number;
    return number;
}

struct SyncTime
{
    uint64_t Number = 0, DtimeTicks = 0;
    bool IsKnown = false; // there was a sync, and the offset doesn't reach behind the event
};

SyncTime syncTime(const Recorder &recorder, uint64_t timePs)
{
    if (!recorder.Sync.IsThere || timePs < recorder.Sync.ShiftPs) return {};
    const uint64_t sincePs = timePs - recorder.Sync.ShiftPs;
    const uint64_t number = syncBefore(recorder.Sync, sincePs);
    const uint64_t dtimePs = sincePs - timeOf(recorder.Sync.Times, number, 0);
    if (dtimePs < recorder.OffsetPs) return {.Number = number};
    return {number, quotient(dtimePs - recorder.OffsetPs, recorder.Resolution), true};
}

// Markers of the same moment share a word.
uint32_t markerBits(std::span<const Event> events, size_t &at)
{
    const uint64_t timePs = events[at].TimePs;
    uint32_t bits = 1u << (events[at].Channel - firstMarkerChannel);
    for (; at + 1 < events.size(); ++at) {
        const Event &next = events[at + 1];
        if (next.TimePs != timePs || next.Channel < firstMarkerChannel) break;
        bits |= 1u << (next.Channel - firstMarkerChannel);
    }
    return bits;
}

void countMarkers(Truth &truth, uint32_t bits)
{
    for (int i = 0; i < 4; ++i) truth.Markers[i] += bits >> i & 1;
}

void addT2Words(Recorder &recorder, std::span<const Event> events, Truth &truth)
{
    WordWriter &writer = recorder.Fifo.Writer;
    for (size_t i = 0; i < events.size(); ++i) {
        const Event &event = events[i];
        const uint64_t timetag = quotient(event.TimePs, recorder.Resolution);
        if (event.Channel < syncChannel) {
            addT2Photon(writer, event.Channel, timetag);
            ++truth.Inputs[event.Channel].Recorded;
        } else if (event.Channel == syncChannel) {
            addT2Sync(writer, timetag);
            ++truth.Syncs;
        } else {
            const uint32_t bits = markerBits(events, i);
            addMarker(writer, bits, timetag);
            countMarkers(truth, bits);
        }
    }
}

void addT3Words(Recorder &recorder, std::span<const Event> events, Truth &truth)
{
    WordWriter &writer = recorder.Fifo.Writer;
    for (size_t i = 0; i < events.size(); ++i) {
        const Event &event = events[i];
        const SyncTime at = syncTime(recorder, event.TimePs);
        if (event.Channel >= firstMarkerChannel) {
            const uint32_t bits = markerBits(events, i);
            addMarker(writer, bits, at.Number);
            countMarkers(truth, bits);
        } else if (!at.IsKnown || at.DtimeTicks >= dtimes) {
            lose(truth, event, Loss::Outside);
        } else {
            addT3Photon(writer, event.Channel, at.Number, static_cast<uint32_t>(at.DtimeTicks));
            ++truth.Inputs[event.Channel].Recorded;
        }
    }
}

// Time passes without records too. An instrument that compresses waits with the words, in case a record comes.
void addIdleOverflows(Recorder &recorder, uint64_t endPs)
{
    Fifo &fifo = recorder.Fifo;
    if (endPs < fifo.OverflowsUpTo + fifo.HoldPs) return;
    fifo.OverflowsUpTo = endPs;
    if (recorder.Mode == 2) return addOverflows(fifo.Writer, quotient(endPs, recorder.Resolution));
    const SyncClock &sync = recorder.Sync;
    if (sync.IsThere && endPs > sync.ShiftPs) addOverflows(fifo.Writer, syncBefore(sync, endPs - sync.ShiftPs));
}

void loseWord(uint32_t word, Truth &truth)
{
    ++truth.LostWords;
    const uint32_t channel = word >> 25 & 63;
    if (word >> 31 == 0) {
        ++truth.Inputs[channel].Lost[static_cast<int>(Loss::Fifo)];
        --truth.Inputs[channel].Recorded;
    } else if (channel == 0) {
        --truth.Syncs;
    } else if (channel < 16) {
        for (uint32_t i = 0; i < 4; ++i) truth.Markers[i] -= channel >> i & 1;
    }
}

// What doesn't fit is lost, and so is everything after it: the times of later words couldn't be trusted.
void cutToCapacity(Fifo &fifo, size_t wordsBefore, Truth &truth)
{
    std::vector<uint32_t> &words = fifo.Writer.Words;
    const size_t most = fifo.HasOverflowed ? wordsBefore : std::max(wordsBefore, fifo.Front + fifo.Capacity);
    if (words.size() > most) {
        fifo.HasOverflowed = true;
        for (size_t i = most; i < words.size(); ++i) loseWord(words[i], truth);
        words.resize(most);
    }
    truth.WordsWritten += words.size() - wordsBefore;
}

void addCounts(Recorder &recorder, std::span<const Event> events, Truth &truth)
{
    Histograms &histograms = recorder.Histograms;
    for (const Event &event : events) {
        if (event.Channel >= syncChannel) continue;
        const SyncTime at = syncTime(recorder, event.TimePs);
        if (!at.IsKnown || at.DtimeTicks >= histograms.Bins || histograms.HasReachedStop) {
            lose(truth, event, Loss::Outside);
            continue;
        }
        uint32_t &count = histograms.Counts[event.Channel * histograms.Bins + at.DtimeTicks];
        count += count < UINT32_MAX;
        histograms.HasReachedStop = count >= histograms.StopCount;
        ++truth.Inputs[event.Channel].Recorded;
    }
}

} // namespace

void record(Recorder &recorder, std::span<const Event> events, uint64_t endPs, Truth &truth)
{
    if (recorder.Mode == 0) return addCounts(recorder, events, truth);
    const size_t wordsBefore = recorder.Fifo.Writer.Words.size();
    recorder.Mode == 2 ? addT2Words(recorder, events, truth) : addT3Words(recorder, events, truth);
    addIdleOverflows(recorder, endPs);
    cutToCapacity(recorder.Fifo, wordsBefore, truth);
}

size_t wordsWaiting(const Fifo &fifo)
{
    return fifo.Writer.Words.size() - fifo.Front;
}

size_t readWords(Fifo &fifo, uint32_t *words, size_t room)
{
    std::vector<uint32_t> &all = fifo.Writer.Words;
    const size_t count = std::min(room, wordsWaiting(fifo));
    if (count > 0) std::memcpy(words, all.data() + fifo.Front, count * sizeof *words);
    fifo.Front += count;
    if (fifo.Front * 2 >= all.size()) {
        all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(fifo.Front));
        fifo.Front = 0;
    }
    return count;
}

} // namespace Tessel::Sim
