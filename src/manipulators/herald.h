// The work of a Herald.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

#include <limits>

namespace Tessel {

struct HeraldState
{
    uint64_t Delay = 0, Window = 0; // ps; negative ones wrap
    bool Inverted = false;
    bool Keep = false;

    uint64_t Last = 0; // ps, of the last herald event
    uint64_t BeforeLast = std::numeric_limits<uint64_t>::max();
    bool Seen = false;
};

template <>
inline constexpr Hook hooksOf<HeraldState> = Hook::StartPass;

void startPass(HeraldState &herald, const StageRef &);
uint64_t work(HeraldState &herald, const StageRef &stage, Piece in, EventStore &out);

} // namespace Tessel
