// The ledger of a run: who loses something notes it here, and nothing is lost without a note. What the host
// itself does without is no loss: an array that it doesn't give, a stage that it ends, and what a run that it
// has stopped doesn't count any more.
#pragma once

#include "records/losses.h"

namespace Tessel {

struct Run;

// `lost`: words or events; 0 where nobody can know. `hadOverflows`: overflow words are among them. Any thread,
// any lock may be held; allocates nothing.
void noteLoss(Run &run, LossPlace place, uint64_t lost, bool hadOverflows = false) noexcept;

// Times of the ledger count from now on.
void startLedger(Run &run) noexcept;

struct LossReport
{
    Tessel::Verdict Verdict = Verdict::Clean;     // of the result
    Tessel::Verdict OfRecording = Verdict::Clean; // of the recording that the run writes, if it does
    LossList Places{};
};
LossReport lossesOf(Run &run);

} // namespace Tessel
