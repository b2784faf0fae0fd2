// The caller's block of raw record words.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <span>

namespace Tessel {

// Appends words to the block and returns how many of them are dealt with. On a recorded file what has no room
// is left for later; a batch that is larger than the whole block goes piece by piece. Live data are never left:
// where there is no room the block starts again at 0.
uint64_t appendToRawBlock(RunRef &run, std::span<const uint32_t> words);

// Until the block has room for the words, or for as many as it takes at all, or the run is aborted.
void waitForRawBlock(Run &run, uint64_t words);

// Moves what stands in the block to `words` and its number to `count`, which stays as it is if there is
// nothing.
void takeRawBlock(MeasContext &context, uint32_t *words, uint64_t *count);

} // namespace Tessel
