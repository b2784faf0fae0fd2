// The work of a Delay.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/event_queue.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

#include <limits>

namespace Tessel {

struct DelayState
{
    uint64_t Delay = 0; // ps; a negative one wraps
    bool Keep = false;
    EventQueue Held; // delayed, not yet due; in the order of arrival
    uint64_t MostHeld =
        std::numeric_limits<uint64_t>::max(); // where time stands still, the oldest goes before its time
};

template <>
inline constexpr Hook hooksOf<DelayState> = Hook::StartPass | Hook::Clear;

void startPass(DelayState &delay, const StageRef &);
uint64_t work(DelayState &delay, const StageRef &stage, Piece in, EventStore &out);
void clear(DelayState &delay);

} // namespace Tessel
