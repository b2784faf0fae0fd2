// The work of a Sub-stream.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

namespace Tessel {

struct SubStreamState
{
    uint64_t From = 0, To = 0; // ps, both inside
};

template <>
inline constexpr Hook hooksOf<SubStreamState> = Hook::None;

uint64_t work(SubStreamState &span, const StageRef &stage, Piece in, EventStore &out);

} // namespace Tessel
