// What a stage works on.
#pragma once

#include <cstdint>

namespace Tessel {

// Consecutive events of a batch.
struct Piece
{
    const uint64_t *Times;
    const uint8_t *Channels;
    uint64_t Count;
    bool Resumed = false; // begins with the event at which the last piece was cut
};

} // namespace Tessel
