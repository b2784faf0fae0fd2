// Appending runs of unchanged events.
#pragma once

#include "stream/event_store.h"
#include "stream/piece.h"

#include <algorithm>
#include <cstring>

namespace Tessel {

// The events [from, to) of the piece; `out` has room for them.
inline void appendRun(const Piece &in, uint64_t from, uint64_t to, EventStore &out)
{
    constexpr uint64_t shortRun = 8; // below it a call costs more than the copy
    const uint64_t count = to - from;
    uint64_t *times = out.Times.get() + out.Count;
    uint8_t *channels = out.Channels.get() + out.Count;
    out.Count += count;
    if (count <= shortRun) {
        for (uint64_t i = 0; i < count; ++i) {
            times[i] = in.Times[from + i];
            channels[i] = in.Channels[from + i];
        }
        return;
    }
    std::memcpy(times, in.Times + from, count * sizeof(uint64_t));
    std::memcpy(channels, in.Channels + from, count);
}

} // namespace Tessel
