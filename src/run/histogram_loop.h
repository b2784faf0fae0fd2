// The passes of a run in which the instrument builds the histograms: start, flags, timer, fetching what there
// is. In a sequence each step is a measurement of its own, for which memory and timer start again.
// MeasureThread's.
#pragma once

#include "records/event_store.h"
#include "records/refs.h"

#include <cstdint>

namespace Tessel {

struct HistogramLoop
{
    PageArray<uint32_t> Fetched{}; // as the instrument gives them: a row for each input, behind an empty one
    uint64_t Size = 0;             // of Fetched
    // What the next pass begins with.
    bool ClearPending = true, StartPending = true;
    bool TimerRunning = false; // the acquisition timer was seen running
    bool Running = false;      // the instrument measures, unless it has ended by itself
    int32_t Flags = 0, TimerStatus = 0;
};

// One pass. True: the run ends.
bool passHistogramLoop(RunRef &ref, HistogramLoop &loop);

// Takes effect on an instrument that was started.
void stopHistogramming(RunRef &ref, HistogramLoop &loop);

} // namespace Tessel
