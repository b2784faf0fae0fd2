// How far a batch may go into the next store. If that store is full, a recorded file holds; live data can't
// wait, so the store is emptied.
#pragma once

#include "records/event_store.h"

#include <algorithm>
#include <cstdint>

namespace Tessel {

struct BatchWindow // of the events that a stage has taken
{
    uint64_t Cursor = 0; // first event that isn't handed on yet
    uint64_t End = 0;    // where the present piece ends
    bool Cut = false;    // the present piece found no room for all that it makes: it goes on later, to its end
};

enum class Fill { Work, Hold, Overrun };

// Of a recorded file. Half a store is enough for a piece that is worth a turn of two threads.
inline bool takesPiece(const EventStore &store)
{
    return !store.EndsBatch && store.Count < std::max<uint64_t>(store.Capacity / 2, 1);
}

// Of live data. `count`, `highWater`: of the next store.
inline Fill fillRule(uint64_t count, uint64_t highWater, uint64_t batchSize, BatchWindow &window)
{
    if (count >= highWater) return Fill::Overrun;
    if (!window.Cut) window.End = std::min(batchSize, window.Cursor + (highWater - count));
    return Fill::Work;
}

} // namespace Tessel
