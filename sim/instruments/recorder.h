// The end of an instrument's way: events as T2 or T3 words in a FIFO, or as counts in histograms.
#pragma once

#include "sim/instruments/event.h"
#include "sim/instruments/truth.h"
#include "sim/pulse_times.h"
#include "sim/words.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Tessel::Sim {

// Whole division by a number that is known beforehand, without dividing.
struct Divisor
{
    uint64_t Value = 1, Inverse = UINT64_MAX;
};

inline Divisor divisor(uint64_t value)
{
    return {value, UINT64_MAX / value};
}

inline uint64_t quotient(uint64_t number, const Divisor &by) // number < 2^63
{
    __extension__ using Wide = unsigned __int128;
    const auto guess = static_cast<uint64_t>(static_cast<Wide>(number) * by.Inverse >> 64); // right or 1 below
    return guess + (number - guess * by.Value >= by.Value);
}

// The syncs that are registered: every one of a dead sync input's.
struct SyncClock
{
    bool IsThere = false;
    PulseTimes Times;
    double PerPs = 0;     // 1 / period
    uint64_t ShiftPs = 0; // of number 0
};

struct Fifo
{
    WordWriter Writer; // its words from Front on are in the FIFO
    size_t Front = 0;
    size_t Capacity = 0;
    bool HasOverflowed = false; // from then on nothing is taken
    uint64_t HoldPs = 0;        // that overflow words may wait for a record
    uint64_t OverflowsUpTo = 0; // time of the last overflow words, ps
};

struct Histograms
{
    std::vector<uint32_t> Counts; // inputs x Bins
    uint64_t Bins = 0;
    uint64_t StopCount = UINT64_MAX;
    bool HasReachedStop = false;
};

struct Recorder
{
    int Mode = 3; // 0 histograms, 2 T2, 3 T3
    Divisor Resolution;
    uint64_t OffsetPs = 0; // that is taken off a dtime
    SyncClock Sync;
    Sim::Fifo Fifo;
    Sim::Histograms Histograms;
};

// Events in order; `endPs`: nothing comes before it any more.
void record(Recorder &recorder, std::span<const Event> events, uint64_t endPs, Truth &truth);

size_t wordsWaiting(const Fifo &fifo);

// Moves up to `room` words; returns how many.
size_t readWords(Fifo &fifo, uint32_t *words, size_t room);

} // namespace Tessel::Sim
