// Single events as they stand in a file: lines of CSV, arrays of JSON, or bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Tessel::Cli {

inline constexpr uint32_t dtimeBits = 15; // T3: time = sync number << 15 | dtime

// Npy: as Binary in T2, in T3 11 bytes: sync, dtime, channel.
enum class EventForm { Csv, Json, Binary, Npy };

// What is written of an event takes at most so many characters.
inline constexpr size_t mostEventText = 40;

// Writes events to `to`, which has room for `count` of them, and gives the end of what was written. Without
// `overflows` those are left out. `written`: how many events there are before; those that are written are
// added.
char *writeEvents(EventForm form, bool isT3, bool overflows, const uint64_t *times, const uint8_t *channels,
                  size_t count, uint64_t &written, char *to);

} // namespace Tessel::Cli
