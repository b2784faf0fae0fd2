// The ledger of a run: who loses something notes it here, and nothing is lost without a note.
#pragma once

#include "records/losses.h"

#include <array>

namespace Tessel {

struct Run;

// `lost`: words or events; 0 where nobody can know. Any thread, any lock may be held; allocates nothing.
void noteLoss(Run &run, LossPlace place, uint64_t lost) noexcept;

// Times of the ledger count from now on.
void startLedger(Run &run) noexcept;

struct LossReport
{
    Tessel::Verdict Verdict = Verdict::Clean;
    std::array<Loss, lossPlaces> Places{};
};
LossReport lossesOf(Run &run);

} // namespace Tessel
