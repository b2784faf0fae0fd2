// The record words of a run, as they were read, for the caller's block. ProcessThread writes them there: a run
// of words has no measurement thread.
#pragma once

#include "measurements/measurement_steps.h"

#include <cstdint>
#include <span>

namespace Tessel {

struct RawWords // guarded by RawLock
{
    uint32_t *Words = nullptr; // the caller's
    uint64_t Capacity = 0;     // 0: no block, the words pass by
    uint64_t *Count = nullptr; // the caller's, or OwnCount
    uint64_t OwnCount = 0;

    static const MeasurementSteps<RawWords> Steps;
};

// Appends words to the block and returns how many of them are done. On a recorded file words without room are
// left for later, and a batch larger than the whole block goes in pieces. Live data are never left: without
// room the block starts again at 0.
uint64_t appendToRawBlock(RunRef &run, std::span<const uint32_t> words);

// Live words were dropped: the block starts again at 0.
void clearRawBlock(Run &run);

// Waits until the block has room for the words (for more words than its capacity: until it is empty), or the
// run is aborted.
void waitForRawBlock(Run &run, uint64_t words);

// Moves the content of the block to `words` and its number to `count`. If the block is empty, `count` stays as
// it is.
void takeRawBlock(MeasContext &context, uint32_t *words, uint64_t *count);

} // namespace Tessel
