// The work of a Merge.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

namespace Tessel {

struct MergeState
{
    bool Keep = false;
};

template <>
inline constexpr Hook hooksOf<MergeState> = Hook::None;

uint64_t work(MergeState &merge, const StageRef &stage, Piece in, EventStore &out);

} // namespace Tessel
