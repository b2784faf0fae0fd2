// The decoded events of a run: for the caller's block, or for the import stages of other devices.
#pragma once

#include "measurements/frame.h"
#include "measurements/measurement_steps.h"

#include <cstdint>

namespace Tessel {

struct UnfoldEvents // guarded by ManisLock
{
    EventBlock Block{};    // the caller's; of a run for import stages, Own
    uint64_t OwnCount = 0; // the count, if the caller gave none
    EventStore Own{};      // for import stages; once a caller's run is over, what was left in the block

    static const MeasurementSteps<UnfoldEvents> Steps;
};

// The block that the caller gives.
EventBlock hostsBlock(const RunRequest &request);

enum class Placed { All, Some, Overwritten, LastOnly };

// Writes the events of a batch from `done` on to the block and moves `done` past those that are done. Without
// any memory events are dropped; a null array of the two is not written to. A recorded file can wait: events
// without room are left, and a batch larger than the whole block goes in pieces (Some). An instrument can't:
// the block starts again with this batch (Overwritten), or, if the batch is larger than the block, with its
// last events (LastOnly). A remote device's batch is dropped.
Placed placeEvents(const EventBlock &block, const StreamFacts &facts, EventBatch batch, uint64_t &done);

// Moves the content of the block to `times` and `channels` and its number to `count`. If the block is empty,
// `count` stays as it is.
void takeUnfoldBlock(MeasContext &context, uint64_t *times, uint8_t *channels, uint64_t *count);

// The times of the events with this channel, in their order; returns their number. Markers and overflow records
// have no times of a channel. `result` null: they are counted only.
uint64_t timesOfChannel(const uint8_t *channels, const uint64_t *times, uint64_t count, int32_t channel,
                        uint64_t *result);

} // namespace Tessel
