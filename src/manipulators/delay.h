// The work of a Delay.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/event_queue.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

namespace Tessel {

struct DelayState
{
    uint64_t Delay = 0; // ps; a negative one wraps
    bool Keep = false;
    EventQueue Held; // delayed, not yet due; in the order of arrival
};

template <>
inline constexpr Hook hooksOf<DelayState> = Hook::StartPass | Hook::Clear;

void startPass(DelayState &delay, const StageRef &);
uint64_t work(DelayState &delay, const StageRef &stage, Piece in, EventStore &out);
void clear(DelayState &delay);

} // namespace Tessel
