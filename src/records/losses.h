// What a run lost, and where: one entry for each place at which events or words can get lost.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>

namespace Tessel {

// The order is that of the road of a word, from the instrument to the host and the file.
enum class LossPlace : int32_t {
    Fifo,         // the instrument's FIFO was full: how many counts, nobody knows
    Dropped,      // counts that the instrument says it dropped; how many, nobody knows
    ReadBuffer,   // words that ProcessThread was too slow to take
    InvalidWords, // words that mean nothing; each may have been an overflow
    Store,        // events in the first store
    Stage,        // events in the store of a later stage, or in the last one
    RawBlock,     // words that the host didn't fetch
    UnfoldBlock,  // events that the host didn't fetch
    Import,       // events of another device that found no room, or that its run lost before
    File,         // words that are missing from the recording
};
inline constexpr size_t lossPlaces = 10;

struct Loss
{
    uint64_t Occasions = 0;
    uint64_t Lost = 0;               // words or events; of Fifo and Dropped always 0
    int64_t FirstNs = 0, LastNs = 0; // since the run began to measure
    bool HadOverflows = false;       // among the words
};
using LossList = std::array<Loss, lossPlaces>; // by LossPlace

enum class Verdict : int32_t {
    Clean,   // nothing was lost
    Lossy,   // something is missing; the times of all else are right
    Invalid, // overflows are missing, or may be: times after them are too early
};

struct LossReport
{
    Tessel::Verdict Verdict = Verdict::Clean;
    LossList Places{};
    std::string Problem{}; // why a side file says nothing; empty: it does, or there is none
};

struct Losses
{
    std::mutex Lock;     // nothing is taken under it; guards all below
    int64_t BeganAt = 0; // ns, monotonic; 0: not yet
    LossList Places{};
};

} // namespace Tessel
