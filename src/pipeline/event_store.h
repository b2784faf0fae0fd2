// The form in which decoded events pass between threads: two parallel arrays, time and channel.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace Tessel {

namespace ChannelCode {
inline constexpr uint8_t Sync = 0;      // T2 only
inline constexpr uint8_t Special = 128; // bit of markers and overflow records
inline constexpr uint8_t Overflow = 255;
} // namespace ChannelCode

inline bool isMarker(uint8_t channel)
{
    return (channel & ChannelCode::Special) != 0 && channel != ChannelCode::Overflow;
}

// Of the channels without the special bit, the first `rows` have a row in a result.
inline bool isCounted(uint8_t channel, uint64_t rows)
{
    return (channel & ChannelCode::Special) == 0 && channel < rows;
}

// A zeroed array that costs nothing until it is touched. Null when not allocated.
template <class T>
class PageArray
{
public:
    // False if the memory is refused; the array is then null.
    bool allocate(uint64_t count)
    {
        memory.reset(count <= SIZE_MAX / sizeof(T) ? static_cast<T *>(std::calloc(count, sizeof(T))) : nullptr);
        return memory != nullptr || count == 0;
    }
    void free() { memory.reset(); }
    T *get() const { return memory.get(); }
    T &operator[](uint64_t index) const { return memory.get()[index]; }
    explicit operator bool() const { return memory != nullptr; }

private:
    struct Release
    {
        void operator()(T *pointer) const { std::free(pointer); }
    };
    std::unique_ptr<T, Release> memory;
};

// Guarded by the lock of the record that holds it.
struct EventStore
{
    PageArray<uint64_t> Times;   // T2: ps. T3: sync number above 15 bits of dtime
    PageArray<uint8_t> Channels; // ChannelCode
    uint64_t Count = 0;
    uint64_t Capacity = 0;

    bool hasArrays() const { return Times && Channels; }

    bool allocate(uint64_t capacity)
    {
        Count = 0;
        Capacity = capacity;
        if (Times.allocate(capacity) && Channels.allocate(capacity)) return true;
        free();
        return false;
    }
    void free()
    {
        Times.free();
        Channels.free();
        Count = Capacity = 0;
    }
    void append(uint64_t time, uint8_t channel)
    {
        Times[Count] = time;
        Channels[Count] = channel;
        ++Count;
    }
};

// Moves all events of `store` to the empty `batch` by exchanging the arrays, which have one capacity.
inline void takeAll(EventStore &store, EventStore &batch)
{
    std::swap(store.Times, batch.Times);
    std::swap(store.Channels, batch.Channels);
    batch.Count = std::exchange(store.Count, 0);
}

} // namespace Tessel
