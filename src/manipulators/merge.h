// The work of a Merge.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/piece.h"

namespace Tessel {

struct MergeState
{
    bool Keep = false;
};

void startPass(MergeState &, const StageRef &);
uint64_t work(MergeState &merge, const StageRef &stage, Piece in, EventStore &out);
void afterPiece(MergeState &, const StageRef &, Piece);
void clear(MergeState &);
bool finishPass(MergeState &, const StageRef &, EventStore *);

} // namespace Tessel
