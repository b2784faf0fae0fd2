// How far a batch may go into the next store, and what becomes of it when that store is full: a recorded file
// can wait, so it holds; live data can't, so the store is cleared.
#pragma once

#include <algorithm>
#include <cstdint>

namespace Tessel {

struct BatchWindow // of a stage's private batch
{
    uint64_t Cursor = 0; // first event that isn't handed on yet
    uint64_t End = 0;    // where the present piece ends
    bool Cut = false; // the present piece found no room for all that it makes: it is gone on with, to its end
};

enum class Fill { Work, Hold, Overrun };

// `count`, `highWater`: of the next store. `hold`: its mark, kept here.
inline Fill fillRule(uint64_t count, uint64_t highWater, bool isFile, uint64_t batchSize, BatchWindow &window,
                     bool &hold)
{
    if (count < highWater) {
        hold = false;
        if (!window.Cut) window.End = std::min(batchSize, window.Cursor + (highWater - count));
    } else if (!hold && !isFile) {
        return Fill::Overrun;
    } else if (!hold) {
        hold = true;
    }
    return window.End > window.Cursor ? Fill::Work : Fill::Hold;
}

} // namespace Tessel
