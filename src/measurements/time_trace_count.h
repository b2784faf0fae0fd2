// Counting of a time trace: decoded events in, counts per bin of time out. No lock and no thread.
#pragma once

#include "stream/event_store.h"
#include "stream/times.h"

#include <cstdint>
#include <span>

namespace Tessel {

// The bins that aren't published yet: a window of NumBins bins on absolute time, which moves on when an event
// is after its end. Kept as a ring of columns, one for each bin, with a count for each channel, so that moving
// on copies nothing. Counts wrap at 32 bits, as those of the caller do.
struct TimeTraceWork
{
    uint64_t NumBins = 0;
    uint64_t BinWidth = 0; // ps
    uint64_t Rows = 0;     // channels that have a row
    PageArray<uint32_t> Counts;

    uint64_t FirstBin = 0;     // absolute number of the window's first bin
    uint64_t CurrentBin = 0;   // position in the window of the last event's bin
    uint64_t Origin = 0;       // column of the window's first bin
    uint64_t Used = 0;         // positions from here on are all zero
    uint64_t Dropped = 0;      // bins that the window has passed unpublished; at most NumBins
    bool HasRestarted = false; // an event was before the window, which began anew with it

    // False: there is no memory for such a trace.
    bool allocate(uint64_t rows, uint64_t numBins);

    // More rows, if a stage came during the run; the counts stay. Throws if the memory is refused.
    void growTo(uint64_t rows);

    uint32_t *columnAt(uint64_t position) const
    {
        const uint64_t column = position < NumBins - Origin ? Origin + position : position - (NumBins - Origin);
        return Counts.get() + column * Rows;
    }
};

// Floor of size / bins in doubles, as a bin width.
uint64_t traceBinWidth(uint64_t historySizePs, uint64_t numBins);

// Counts each event in the bin of its time. Markers are passed over; overflow records count nowhere, but move
// the window on, as any event does.
void timeTraceCount(TimeTraceWork &work, T2Time time, const uint64_t *times, const uint8_t *channels,
                    uint64_t count);
void timeTraceCount(TimeTraceWork &work, const T3Time &time, const uint64_t *times, const uint8_t *channels,
                    uint64_t count);

// Adds what was counted elsewhere, but for the first positions there, in bins that begin with the last event's
// bin here or after it. The last event is then the last of there.
void addTrace(TimeTraceWork &work, const TimeTraceWork &counted, uint64_t before);
// Positions before the first bin that has counts, at most up to the last event's bin.
uint64_t emptyPositions(const TimeTraceWork &work);
// Starts anew.
void emptyTrace(TimeTraceWork &work, uint64_t firstBin);

// Moves the complete bins, and with `last` the one that is being counted, to the right end of each row of
// `trace` (rows x NumBins), whose older bins move left. Bins that the window has passed unpublished are zero
// there. The window then starts after the bins that were moved. False, and nothing is done: there is no
// complete bin.
//
// In a window of one bin that bin is never complete, and stays in the window at the end too.
bool giveOutTrace(TimeTraceWork &work, uint32_t *trace, uint64_t rows, bool last);

} // namespace Tessel
