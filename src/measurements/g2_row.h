// A row of g2 and a block of its events. No lock and no thread.
#pragma once

#include <array>
#include <cstdint>

namespace Tessel {

// Where the events of each channel go: their times, and how many on the other channel came before. An event on
// both, if they are the same, is on the first before it is on the second.
struct G2Split
{
    static constexpr uint64_t Behind = 8; // elements behind the last of each array that may be written

    std::array<uint64_t, 2> Channels; // from 256 on: none
    std::array<uint64_t *, 2> Times;
    std::array<uint32_t *, 2> Seen;
    std::array<uint32_t, 2> Count{};
};

// A register of events at a time, as many as there are whole registers; their number, 0 where the machine has
// none such.
uint64_t splitG2Registers(const uint64_t *times, const uint8_t *channels, uint64_t count, G2Split &split);

// Events of one channel against the ring of the other. A start is counted against the stops before
// Stops + Seen[start], from the newest back to the first that is Span or more away, or later than the start.
//
// R1: the starts ascend, and so do the stops; all times are below TimeRing::TimeLimit.
// R2: before the oldest stop there are TimeRing::FrontSpace fences, Span or more away from each start.
// R3: no stop is 0, and none that should have left the ring within the block is reached.
struct G2Row
{
    const uint64_t *Starts;
    uint64_t Count;
    const uint32_t *Seen;  // of each start: stops of this block before it
    const uint64_t *Stops; // the first of this block, behind those of the ring
    uint64_t BinWidth;     // ps
    uint64_t Span;         // ps; pairs at this distance and beyond have no bin
    uint64_t *Counts;
};

struct G2Found
{
    uint64_t Pairs = 0, Equal = 0; // Equal: of them at equal times
};

// A register of stops at a time, which is fast from half a pair for each start on. Needs R1 to R3. False, and
// nothing is done: the machine has no such registers, or the span is too long.
bool countG2Registers(const G2Row &row, G2Found &found);

} // namespace Tessel
