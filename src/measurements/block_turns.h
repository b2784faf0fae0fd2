// Counting a batch block by block, with a look at flags and clock between two blocks. `isQuiet` names the
// channels after whose events there is no such look: nothing is published and nothing cut short there.
#pragma once

#include "measurements/frame.h"

#include <algorithm>

namespace Tessel {

inline constexpr uint64_t blockEvents = 32768;

// A recorded file publishes by the clock, or after its first event; of anything else CopyStoreThread publishes.
inline bool isPublicationDue(const Run &run)
{
    if (run.PublishesByBatch) return run.LastPublish == 0;
    return run.Facts.MayWait && monotonicNs() - run.LastPublish > publishIntervalNs;
}

// True: the rest of the batch is dropped.
inline bool isCutShort(Run &run)
{
    return isAborted(run) || run.ClearRequested.exchange(false);
}

// What was asked for before a block takes effect after its first event. `manis` holds ManisLock.
template <class IsQuiet, class CountBlock>
void countInBlocks(RunRef &ref, EventBatch batch, std::unique_lock<std::mutex> &manis, IsQuiet isQuiet,
                   CountBlock countBlock)
{
    Run &run = *ref.run;
    for (uint64_t at = 0; at < batch.Count;) {
        const bool isAskedFor = isAborted(run) || run.ClearRequested || isPublicationDue(run);
        const uint64_t size = isAskedFor ? 1 : std::min(blockEvents, batch.Count - at);
        countBlock(EventBatch{batch.Times + at, batch.Channels + at, size});
        at += size;
        if (isQuiet(batch.Channels[at - 1])) continue;
        if (isAborted(run) || isPublicationDue(run)) publish(ref, manis);
        if (isCutShort(run)) break;
    }
}

// The same event by event, for a sequence: `countEvent` returns whether a step is done.
template <class IsQuiet, class CountEvent>
void countInSteps(RunRef &ref, EventBatch batch, std::unique_lock<std::mutex> &manis, IsQuiet isQuiet,
                  CountEvent countEvent)
{
    for (uint64_t i = 0; i < batch.Count; ++i) {
        const bool isStepDone = countEvent(EventBatch{batch.Times + i, batch.Channels + i, 1});
        if (isQuiet(batch.Channels[i])) continue;
        if (isStepDone) publish(ref, manis);
        if (isCutShort(*ref.run)) break;
    }
}

} // namespace Tessel
