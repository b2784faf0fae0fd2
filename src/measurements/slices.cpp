#include "measurements/slices.h"

#include "stream/order.h"
#include "stream/words.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

namespace {

constexpr size_t mostInvalid = 10;

// False: an error, or the file has shrunk.
bool readWords(const Slices &all, std::span<uint32_t> words, uint64_t from)
{
    const int64_t got = readAt(all.Source.File, reinterpret_cast<char *>(words.data()), words.size_bytes(),
                               all.Source.ReadPos + from * sizeof(uint32_t));
    return got == static_cast<int64_t>(words.size_bytes());
}

// Of a word, in time tags or syncs; `base` is that before it.
uint64_t timeOf(const DecodeRules &rules, uint32_t word, uint64_t base)
{
    if (word >> 25 == Word::OverflowKind) return base + overflowsIn({&word, 1}, rules.Mode);
    return base + (rules.Mode == MeasMode::T2 ? Word::timetag(word) : Word::nsync(word));
}

// Takes no look at the single events, if the words are in order.
void noteOrderOf(const Slices &all, Slice &slice, const WordSums &sums, SliceReader &reader)
{
    const bool isT2 = all.Rules.Mode == MeasMode::T2;
    const uint64_t unit = isT2 ? all.Rules.SyncPeriodPs : 1;
    const uint32_t last = slice.Words.back();
    const uint64_t lastTime =
        last >> 25 == Word::OverflowKind ? slice.BaseAfter : timeOf(all.Rules, last, slice.BaseAfter);
    StreamOrder &order = slice.OrderAfter = all.Reading.Order;
    if (sums.AllValid && sums.Ascends && followsInOrder(order, slice.First * unit, lastTime * unit)) return;
    uint64_t base = slice.Base;
    for (auto words = slice.Words; !words.empty();) {
        const auto piece = words.first(std::min<size_t>(words.size(), reader.Times.size()));
        words = words.subspan(piece.size());
        InvalidWords unlisted{.Words = {}, .Count = 0, .Room = 0};
        decodeInOrder(piece, all.Rules, base, reader.Times.data(), reader.Channels.data(), unlisted, order);
    }
}

} // namespace

bool awaitTurn(Turns &turns, uint64_t number)
{
    std::unique_lock lock(turns.Lock);
    turns.Changed.wait(lock, [&] { return turns.Next == number || turns.End <= number; });
    return turns.End > number;
}

void passTurn(Turns &turns, const Slice &slice)
{
    {
        std::lock_guard lock(turns.Lock);
        ++turns.Next;
        turns.Base = slice.BaseAfter;
        turns.Order = slice.OrderAfter;
    }
    turns.Changed.notify_all();
}

void endTurns(Turns &turns, uint64_t number)
{
    {
        std::lock_guard lock(turns.Lock);
        turns.End = std::min(turns.End, number);
    }
    turns.Changed.notify_all();
}

void endSlices(Slices &all, uint64_t number)
{
    all.Closed = true;
    endTurns(all.Reading, number);
    endTurns(all.Counting, number);
}

SliceReader::SliceReader(uint64_t mostEvents) : Words(sliceWords), Times(mostEvents), Channels(mostEvents)
{
    Invalid.reserve(mostInvalid);
}

std::optional<Slice> takeSlice(Run &run, Slices &all, SliceReader &reader)
{
    if (all.Closed || run.Control.StopRequested || isAborted(run)) return std::nullopt;
    Slice slice{.Number = all.Taken.fetch_add(1)};
    const uint64_t from = slice.Number * sliceWords;
    if (from >= all.Words) return std::nullopt;
    const auto words = std::span(reader.Words).first(std::min(sliceWords, all.Words - from));
    slice.Words = words;
    const bool isRead = readWords(all, words, from);
    const WordSums sums = isRead ? sumsOf(words, all.Rules.Mode, all.Rules.NumChans) : WordSums();
    if (!awaitTurn(all.Reading, slice.Number)) return std::nullopt;
    if (!isRead) { // who reads on in the ordinary way says what it is
        endSlices(all, slice.Number);
        return std::nullopt;
    }
    slice.Base = all.Reading.Base; // nobody writes it in our turn
    slice.BaseAfter = slice.Base + sums.Overflows;
    slice.AllValid = sums.AllValid;
    slice.First = timeOf(all.Rules, words.front(), slice.Base);
    noteOrderOf(all, slice, sums, reader);
    passTurn(all.Reading, slice);
    return slice;
}

uint64_t decodePiece(const Slices &all, const Slice &slice, SliceReader &reader,
                     std::span<const uint32_t> &words, uint64_t &base, bool notesInvalid)
{
    const auto piece = words.first(std::min<size_t>(words.size(), reader.Times.size()));
    words = words.subspan(piece.size());
    InvalidWords invalid{.Room = static_cast<uint32_t>(mostInvalid - reader.Invalid.size())};
    const uint64_t events =
        decode(piece, all.Rules, base, reader.Times.data(), reader.Channels.data(), invalid);
    if (events == piece.size() || !notesInvalid) return events;
    reader.Lost += invalidAmong(piece, events, all.Rules);
    for (uint32_t i = 0; i < invalid.Count; ++i) reader.Invalid.emplace_back(slice.Number, invalid.Words[i]);
    return events;
}

} // namespace Tessel
