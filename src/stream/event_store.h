// What is done with an event store: memory, appending, handing over.
#pragma once

#include "records/event_store.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Tessel {

inline bool isMarker(uint8_t channel)
{
    return (channel & ChannelCode::Special) != 0 && channel != ChannelCode::Overflow;
}

// Of the channels without the special bit, the first `rows` have a row in a result.
inline bool isCounted(uint8_t channel, uint64_t rows)
{
    return (channel & ChannelCode::Special) == 0 && channel < rows;
}

// False: there is no memory, and the array is null.
template <class T>
bool allocatePages(PageArray<T> &pages, uint64_t count)
{
    pages.reset(count <= SIZE_MAX / sizeof(T) ? static_cast<T *>(std::calloc(count, sizeof(T))) : nullptr);
    return pages != nullptr || count == 0;
}

inline bool hasArrays(const EventStore &store)
{
    return store.Times && store.Channels;
}

// Something is to be taken, if only the end of a batch.
inline bool hasContent(const EventStore &store)
{
    return store.Count > 0 || store.EndsBatch;
}

inline void drop(EventStore &store)
{
    store.Count = 0;
    store.EndsBatch = false;
}

inline void release(EventStore &store)
{
    store = {};
}

// Makes the store empty, with room. False: there is no memory, and no arrays.
inline bool allocate(EventStore &store, uint64_t capacity)
{
    drop(store);
    store.Capacity = capacity;
    if (allocatePages(store.Times, capacity) && allocatePages(store.Channels, capacity)) return true;
    release(store);
    return false;
}

inline uint64_t roomOf(const EventStore &store)
{
    return store.Capacity - std::min(store.Count, store.Capacity);
}

// There is room for the event.
inline void append(EventStore &store, uint64_t time, uint8_t channel)
{
    store.Times[store.Count] = time;
    store.Channels[store.Count] = channel;
    ++store.Count;
}

// Moves all that `store` has to the empty `batch` by exchanging the arrays, which have one capacity.
inline void takeAll(EventStore &store, EventStore &batch)
{
    std::swap(store.Times, batch.Times);
    std::swap(store.Channels, batch.Channels);
    batch.Count = std::exchange(store.Count, 0);
    batch.EndsBatch = std::exchange(store.EndsBatch, false);
}

} // namespace Tessel
