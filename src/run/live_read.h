// What a run on an instrument does beside reading: the sync it needs, the flags it answers for, the timer that
// ends it. MeasureThread's. On a recorded file nothing of it has an effect.
#pragma once

#include "devices/source.h"
#include "records/refs.h"

#include <cstdint>

namespace Tessel {

// The sync period of T3 from the rate that the instrument gives. False, and the run ends: there is no sync.
bool takeSyncPeriod(RunRef &ref, int32_t syncRate);

// Reports what the flags say. True: the run ends.
bool tellFlags(RunRef &ref, int32_t flags);

// The acquisition timer was seen running, and has run out.
bool timerRanOut(RecordSource &source);

// One read, after the words that wait; none if there is no room for it.
Reading readWords(RunRef &ref, RecordSource &source);

// Reads what is left after the timer has run out, until nothing more comes. True: the run ends.
bool readLastWords(RunRef &ref, RecordSource &source);

// There is no room for live data: what waits is dropped, and the run goes on with what is newer.
void dropWaiting(RunRef &ref);

// Words wait for ProcessThread.
bool wordsWait(Run &run);
// The same at the end, when nothing more is read: waits until it has taken those before.
void handOverRest(Run &run);

} // namespace Tessel
