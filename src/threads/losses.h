// The ledger of a run: who loses something notes it here, and nothing is lost without a note. What the host
// itself does without is no loss: an array that it doesn't give, a stage that it ends, and what a run that it
// has stopped doesn't count any more.
#pragma once

#include "records/refs.h"

#include <optional>

namespace Tessel {

// `lost`: words or events; 0 where nobody can know. `hadOverflows`: overflow words are among them. Any thread,
// any lock may be held; allocates nothing.
void noteLoss(Run &run, LossPlace place, uint64_t lost, bool hadOverflows = false) noexcept;

// Times of the ledger count from now on.
void startLedger(Run &run) noexcept;

// What the result lacks.
LossReport lossesOf(Run &run);
// What a recording of the run lacks, whether or not it is recorded.
LossReport lossesOfRecording(Run &run);

// Events that were read after a later one so far, and how far one went back in units of raw time (T3: syncs).
void tellOrder(Run &run, uint64_t stepsBack, uint64_t largestStep) noexcept;

struct DeviceLosses
{
    uint64_t StepsBack = 0, LargestStepPs = 0; // of the live run, or the last
    bool IsSorted = false;
    uint64_t Unsorted = 0;
    LossReport Result{};                   // of the live run, or the last
    std::optional<LossReport> Recording{}; // that the device is, or that the run writes
};
DeviceLosses lossesOf(const DeviceRef &target);

} // namespace Tessel
