// The time stamps of one channel that are young enough to pair with a new one, oldest at the head.
//
// They lie in one piece of memory in which the live part slides on and is moved back to the front now and then,
// so that loops over them run on a plain array. A time is known by its number, which it keeps: the first one
// ever is number FrontSpace, and the time number n lies at Times[n - Base].
#pragma once

#include "pipeline/event_store.h"

#include <cstdint>

namespace Tessel {

struct TimeRing
{
    static constexpr uint64_t FrontSpace = 8; // elements before the head that a loop may use as a fence
    static constexpr uint64_t BackSpace = 16; // elements behind the last time, likewise
    static constexpr uint64_t MinCapacity = 1048576;

    PageArray<uint64_t> Times; // ps, in order of arrival
    // The earliest of a time and all that arrived after it, so it ascends. Null as long as Times does so by
    // itself, or where nobody wants it.
    PageArray<uint64_t> Ordered;
    bool WantsOrdered = false;
    uint64_t Capacity = 0;
    uint64_t MaxCapacity = 0;

    uint64_t Base = 0;
    uint64_t Head = FrontSpace, Tail = FrontSpace; // the ring holds the numbers from Head to below Tail
    uint64_t VisibleFrom = 0;                      // behind the last time of 0 ps, which hides what is older
    uint64_t DescentAt = 0;                        // last time that is earlier than the one before it
    uint64_t Latest = 0, LatestAt = 0;             // the largest time in the ring and its number
    uint64_t LateUntil = 0;                        // the largest time that a later arrival fell below; 0: none

    uint64_t count() const { return Tail - Head; }
    uint64_t time(uint64_t number) const { return Times[number - Base]; }
    // From the oldest visible time on.
    const uint64_t *ordered() const { return Ordered ? Ordered.get() : Times.get(); }
    uint64_t visibleHead() const { return VisibleFrom > Head ? VisibleFrom : Head; }
    bool isAscending() const { return DescentAt <= Head; }
};

// Allocates the least capacity. Throws if the memory is refused.
void setUpRing(TimeRing &ring, bool wantsOrdered);

// Room for `more` times behind the tail. Throws if the ring would take more memory than is sensible.
void reserve(TimeRing &ring, uint64_t more);

// Appends a time, then removes from the head on what is more than `window` older, unsigned, up to the first
// that isn't. The number removed.
uint64_t push(TimeRing &ring, uint64_t time, uint64_t window);

// The same for `count` times that stand behind the tail already, ascend, and are none of them 0 or before
// Latest. Where Ordered is there they stand in it too.
void pushWritten(TimeRing &ring, uint64_t count, uint64_t window);

} // namespace Tessel
