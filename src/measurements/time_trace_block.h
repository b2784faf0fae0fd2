// A block of events of a time trace whose bins are short: the elements that they add to, a register of events
// at a time. No lock and no thread.
#pragma once

#include <cstdint>

namespace Tessel {

// How raw times become ps after `FromPs`.
struct TraceScale
{
    uint64_t FromPs;
    bool IsT3;
    uint64_t PeriodPs; // T3
    double Resolution; // T3; ps
};

struct TraceBlock
{
    static constexpr uint64_t Events = 256;
    static constexpr uint64_t Limit = uint64_t{1} << 50; // ps; distances from here on are too long

    uint64_t Distances[Events]; // ps after the scale's start
    // Of events that aren't markers.
    uint64_t Least, Most; // ps
};

// False, and nothing is to be used: the machine has no such registers, a time is too far from the start or
// before it, or all are markers.
bool findDistances(TraceBlock &block, const TraceScale &scale, const uint64_t *times, const uint8_t *channels);

struct TraceColumns
{
    uint64_t Skipped; // ps; distance of the window's first bin
    uint64_t BinWidth, NumBins, Origin, Rows;
};

// Needs distances from Skipped on and within the window, and fewer than 2^31 elements. The number of elements,
// each of an event on one of the channels below `countedRows`.
uint64_t findElements(const TraceBlock &block, const TraceColumns &columns, uint64_t countedRows,
                      const uint8_t *channels, uint32_t *elements);

} // namespace Tessel
