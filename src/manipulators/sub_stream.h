// The work of a Sub-stream.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/piece.h"

namespace Tessel {

struct SubStreamState
{
    uint64_t From = 0, To = 0; // ps, both inside
};

void startPass(SubStreamState &, const StageRef &);
uint64_t work(SubStreamState &span, const StageRef &stage, Piece in, EventStore &out);
void afterPiece(SubStreamState &, const StageRef &, Piece);
void clear(SubStreamState &);
bool finishPass(SubStreamState &, const StageRef &, EventStore *);

} // namespace Tessel
