// The work of a Sort.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

#include <deque>

namespace Tessel {

struct TimedChannel
{
    uint64_t Time; // as it stands in the stream
    uint8_t Channel;
};

// T1: Held ascends in time, and holds what came first before what came later with the same time.
// T2: what has gone out is at most Window older than Latest, unless too much was held.
struct SortState
{
    uint64_t WindowPs = 0;
    uint64_t Window = 0;                      // in units of the stream's times; set at the start of a run
    uint64_t LargestHeld = uint64_t{1} << 22; // events; beyond, the oldest goes before its time
    std::deque<TimedChannel> Held;
    uint64_t Latest = 0, LastOut = 0;
};

template <>
inline constexpr Hook hooksOf<SortState> = Hook::StartPass | Hook::Clear | Hook::FinishPass;

void startPass(SortState &sort, const StageRef &stage);
uint64_t work(SortState &sort, const StageRef &stage, Piece in, EventStore &out);
bool finishPass(SortState &sort, const StageRef &stage, EventStore *out);
void clear(SortState &sort);

} // namespace Tessel
