// The form in which decoded events pass between threads: two parallel arrays, time and channel.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace Tessel {

namespace ChannelCode {
inline constexpr uint8_t Sync = 0;      // T2 only
inline constexpr uint8_t Special = 128; // bit of markers and overflow records
inline constexpr uint8_t Overflow = 255;
} // namespace ChannelCode

struct FreePages
{
    void operator()(void *pages) const { std::free(pages); }
};

// Zeroed memory that costs nothing until it is touched; null when not allocated.
template <class T>
using PageArray = std::unique_ptr<T[], FreePages>;

// Guarded by the lock of the stage, or of the block, that has it.
struct EventStore
{
    PageArray<uint64_t> Times;   // T2: ps. T3: sync number above 15 bits of dtime
    PageArray<uint8_t> Channels; // ChannelCode
    uint64_t Count = 0;
    uint64_t Capacity = 0; // of both arrays
    // A batch ends behind the last event, which may have gone before. Nothing is appended until this is taken.
    bool EndsBatch = false;
};

} // namespace Tessel
