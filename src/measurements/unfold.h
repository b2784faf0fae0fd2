// The block of decoded events: the caller's, or in a run that feeds another device's import stage the run's own
// (Run::ImportBlock).
#pragma once

#include "measurements/frame.h"

#include <cstdint>

namespace Tessel {

// Where there is no memory at all, events pass by; a null array of the two is not written.
struct UnfoldBlock
{
    uint64_t *Times;
    uint8_t *Channels;
    uint64_t Capacity;
    uint64_t &Count;

    bool takesEvents() const { return Capacity > 0 && (Times || Channels); }
    uint64_t room() const { return Count < Capacity ? Capacity - Count : 0; }
};

UnfoldBlock unfoldBlock(Run &run); // ManisLock guards what it names

enum class Placed { All, Some, Overwritten, LastOnly };

// Brings the events of a batch from `done` on into the block and moves `done` past those that are dealt with.
// A recorded file can wait: what has no room is left, and a batch that is larger than the whole block goes
// piece by piece (Some). An instrument can't: the block starts again with this batch (Overwritten), or, if the
// batch is larger than the block, with its last events (LastOnly). A remote device's batch is passed over.
Placed placeEvents(const UnfoldBlock &block, const StreamFacts &facts, EventBatch batch, uint64_t &done);

// Moves what stands in the block to `times` and `channels` and its number to `count`, which stays as it is if
// there is nothing.
void takeUnfoldBlock(MeasContext &context, uint64_t *times, uint8_t *channels, uint64_t *count);

// The times of the events with this channel, in their order; returns their number. Markers and overflow records
// have no times of a channel. `result` null: they are counted only.
uint64_t timesOfChannel(const uint8_t *channels, const uint64_t *times, uint64_t count, int32_t channel,
                        uint64_t *result);

} // namespace Tessel
