// The work of a Count rate.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

#include <cstdint>
#include <vector>

namespace Tessel {

struct CountRateState
{
    uint64_t Window = 0; // ps, the least time that a rate is measured

    std::vector<uint64_t> Counters; // per channel, of the present interval
    uint64_t Start = 0;             // ps, of the interval; 0: not started
    uint64_t FirstSync = 0;         // T3: sync number of the interval's first event
    uint64_t Last = 0;              // of the batch, raw; its last event so far
    bool HasLast = false;           // the batch has an event
};

template <>
inline constexpr Hook hooksOf<CountRateState> = Hook::StartPass | Hook::EndBatch;

void startPass(CountRateState &rate, const StageRef &stage);
uint64_t work(CountRateState &rate, const StageRef &stage, Piece in, EventStore &out);
void endBatch(CountRateState &rate, const StageRef &stage); // takes the stage's lock

} // namespace Tessel
