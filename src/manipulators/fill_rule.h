// How far a batch may go into the next store. If that store is full, a recorded file holds; live data can't
// wait, so the store is emptied.
#pragma once

#include <algorithm>
#include <cstdint>

namespace Tessel {

struct BatchWindow // of the batch that a stage has taken
{
    uint64_t Cursor = 0; // first event that isn't handed on yet
    uint64_t End = 0;    // where the present piece ends
    bool Cut = false;    // the present piece found no room for all that it makes: it goes on later, to its end
};

enum class Fill { Work, Hold, Overrun };

// `count`, `highWater`, `hold`: of the next store; `hold` is set and cleared here.
inline Fill fillRule(uint64_t count, uint64_t highWater, bool mayWait, uint64_t batchSize, BatchWindow &window,
                     bool &hold)
{
    if (count < highWater) {
        hold = false;
        if (!window.Cut) window.End = std::min(batchSize, window.Cursor + (highWater - count));
    } else if (!hold && !mayWait) {
        return Fill::Overrun;
    } else if (!hold) {
        hold = true;
    }
    return window.End > window.Cursor ? Fill::Work : Fill::Hold;
}

} // namespace Tessel
