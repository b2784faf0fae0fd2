// What a stage works on.
#pragma once

#include <cstdint>

namespace Tessel {

// Consecutive events of a batch, which is what the stages of a chain treat as one: of a recorded file the
// events of one read, so that it is always the same stretch of the file; of live data what was handed over at
// once.
struct Piece
{
    const uint64_t *Times;
    const uint8_t *Channels;
    uint64_t Count;
    bool Resumed = false; // goes on with the batch of the piece before
};

} // namespace Tessel
