// The inner loops of the histogram: decoded events in, counts of the caller's array out. No lock and no thread.
//
// `histo` is rows x numBins counts; row = ChannelCode. Markers and overflow records (bit 7 of the channel) and
// channels that have no row are passed over. Counts wrap at 32 bits.
#pragma once

#include <cstdint>

namespace Tessel {

// bin = dtime, the low 15 bits of the time.
void countT3(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo, uint64_t numBins,
             uint64_t rows);

struct T2Counting
{
    uint64_t &LastRefTime; // ps; time of the last event on RefChan, 0 = none seen
    uint8_t RefChan;       // ChannelCode
    uint64_t BinWidth;     // ps; above 0
    uint64_t NumBins;
    uint64_t Rows;
};

// bin = time since the last reference event / bin width. A reference event is counted against the one before
// it.
void countT2(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
             const T2Counting &counting);

// A register of events at a time, as many as fit in whole blocks; their number, 0 where it can't be done.
// `last`: the largest distance that has a bin.
uint64_t countT2Blocks(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                       const T2Counting &counting, uint64_t last);

// The same, event by event and with a division in each: what the loops above are compared with.
void countT3Plain(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                  uint64_t numBins, uint64_t rows);
void countT2Plain(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                  const T2Counting &counting);

} // namespace Tessel
