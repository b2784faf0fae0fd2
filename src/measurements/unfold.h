// The decoded events of a run, as they stand: for the caller's block, or for the import stages of other
// devices.
#pragma once

#include "measurements/frame.h"
#include "measurements/measurement_steps.h"

#include <cstdint>

namespace Tessel {

struct UnfoldEvents // guarded by ManisLock
{
    EventBlock Block{};    // the caller's; of a run for import stages, Own
    uint64_t OwnCount = 0; // where the caller counts with none of his own
    EventStore Own{};      // for import stages; of a caller's run what he has left, once it is over

    static const MeasurementSteps<UnfoldEvents> Steps;
};

// The block that the caller gives.
EventBlock hostsBlock(const RunRequest &request);

enum class Placed { All, Some, Overwritten, LastOnly };

// Brings the events of a batch from `done` on into the block and moves `done` past those that are dealt with.
// Where there is no memory at all, events pass by; a null array of the two is not written.
// A recorded file can wait: what has no room is left, and a batch that is larger than the whole block goes
// piece by piece (Some). An instrument can't: the block starts again with this batch (Overwritten), or, if the
// batch is larger than the block, with its last events (LastOnly). A remote device's batch is passed over.
Placed placeEvents(const EventBlock &block, const StreamFacts &facts, EventBatch batch, uint64_t &done);

// Moves what stands in the block to `times` and `channels` and its number to `count`, which stays as it is if
// there is nothing.
void takeUnfoldBlock(MeasContext &context, uint64_t *times, uint8_t *channels, uint64_t *count);

// The times of the events with this channel, in their order; returns their number. Markers and overflow records
// have no times of a channel. `result` null: they are counted only.
uint64_t timesOfChannel(const uint8_t *channels, const uint64_t *times, uint64_t count, int32_t channel,
                        uint64_t *result);

} // namespace Tessel
