// A recorded file that several threads count side by side. Each takes the next slice of it, reads that into
// memory of its own, and counts it into a copy of its own. What a slice must know of those before it is
// handed on in turns, in the order of the file. So what is counted is always the file up to some slice.
#pragma once

#include "devices/source.h"
#include "records/refs.h"
#include "records/stream_order.h"
#include "stream/words.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Tessel {

// With its events a slice stays in the second-level cache.
inline constexpr uint64_t sliceWords = 65536;

// One slice after the other has its turn. Who waits holds no lock, and only for who has an earlier slice.
//
// T1: a slice from End on never gets its turn; who has one leaves it uncounted.
// T2: Base and Order are those of the slices before Next.
struct Turns
{
    std::mutex Lock; // nothing is taken under it
    std::condition_variable Changed;
    uint64_t Next = 0;         // guarded by Lock, as what follows
    uint64_t End = UINT64_MAX; // a slice from here on isn't counted
    uint64_t Base = 0;         // sum of their overflows
    StreamOrder Order{};
};

struct Slices
{
    // Constant.
    const RecordSource &Source;
    const DecodeRules Rules;
    const uint64_t Words; // in the file, from the source's position on

    std::atomic<uint64_t> Taken{0};  // slices that somebody has taken
    std::atomic<bool> Closed{false}; // no other is taken: the run stops, or goes on in the ordinary way
    Turns Reading{};                 // slices that were read whole
    Turns Counting{};                // those that are counted, where each must know of the one before
    uint64_t Clears = 0;             // of the result, by the host; guarded by ManisLock
};

struct Slice
{
    uint64_t Number = 0;
    std::span<const uint32_t> Words{};
    uint64_t Base = 0, BaseAfter = 0; // sum of the overflows before it, and with it
    uint64_t First = 0;               // time of its first word, in time tags or syncs
    bool AllValid = false;            // each word is an event
    StreamOrder OrderAfter{};         // of the file up to its end
};

// False: it doesn't get one.
bool awaitTurn(Turns &turns, uint64_t number);
// The slice after this one has its turn.
void passTurn(Turns &turns, const Slice &slice);
// From this slice on none has a turn.
void endTurns(Turns &turns, uint64_t number);
// The same for both, and no other is taken.
void endSlices(Slices &all, uint64_t number);

// The first invalid words that a thread has met, with the slice that each is in: at most ten, as of a run no
// more are logged.
using InvalidOfSlices = std::vector<std::pair<uint64_t, uint32_t>>;

// A thread's own memory, and what it has met. A slice that isn't counted is read again in the ordinary way, so
// what it lost is noted when it is counted.
struct SliceReader
{
    explicit SliceReader(uint64_t mostEvents); // at once; throws if there is no memory

    std::vector<uint32_t> Words;
    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;
    InvalidOfSlices Invalid;
    uint64_t Lost = 0; // invalid words of the present slice
};

// Takes the next slice and reads it. None: there is none, none is to be taken, or it can't be read.
std::optional<Slice> takeSlice(Run &run, Slices &all, SliceReader &reader);

// Decodes as much of a slice as the reader takes at once, and moves on in `words` and `base`. The number of
// events. Invalid words are noted, if they haven't been.
uint64_t decodePiece(const Slices &all, const Slice &slice, SliceReader &reader,
                     std::span<const uint32_t> &words, uint64_t &base, bool notesInvalid = true);

} // namespace Tessel
