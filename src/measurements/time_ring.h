// The time stamps of one channel that are young enough to pair with a new one, oldest at the head.
//
// They lie in one array, in which the ring moves on and is moved back to the front now and then, so that loops
// run on a plain array. A time keeps its number; the first one ever has number FrontSpace. Its place is its
// index in Times, which may change when the ring takes in more.
//
//   Times     | ..... gone | the ring  | free ....... |
//   place     0            head        tail           Capacity
//
// For all numbers n from Head to below Tail:
//
// I1: FrontSpace <= place(Head), Head <= Tail, place(Tail) + BackSpace <= Capacity.
// I2: time(n) is not 0 for n >= VisibleFrom, which is at most Tail. A time of 0 hides itself and all before it.
// I3: time(n) ascends for n >= DescentAt.
// I4: Latest is the largest time(n), and LatestAt its number. A ring is empty only before its first time.
// I5: with WantsOrdered, ordered()[place(n)] is the earliest of time(n) and all behind it, for n >=
// VisibleFrom.
//     So it ascends. As long as Ordered is null, the visible times ascend by themselves.
// I6: with WantsOrdered, each visible time(n) below 2^63 that is followed by an earlier one is at most
// LateUntil.
#pragma once

#include "stream/event_store.h"

#include <cstdint>

namespace Tessel {

struct TimeRing
{
    static constexpr uint64_t FrontSpace = 8; // elements before the head that a loop may use as a fence
    static constexpr uint64_t BackSpace = 16; // elements behind the last time, likewise
    static constexpr uint64_t MinCapacity = 1048576;
    static constexpr uint64_t TimeLimit = uint64_t{1} << 63; // ps; from here on differences may wrap

    PageArray<uint64_t> Times;   // ps, in order of arrival
    PageArray<uint64_t> Ordered; // ps, place for place as Times
    bool WantsOrdered = false;
    uint64_t Capacity = 0;
    uint64_t MaxCapacity = 0;

    uint64_t Base = 0; // number of the time at place 0
    uint64_t Head = FrontSpace, Tail = FrontSpace;
    uint64_t VisibleFrom = 0;
    uint64_t DescentAt = 0; // last time that was earlier than the one before it
    uint64_t Latest = 0, LatestAt = 0;
    uint64_t LateUntil = 0; // ps; 0: none

    uint64_t count() const { return Tail - Head; }
    uint64_t place(uint64_t number) const { return number - Base; }
    uint64_t time(uint64_t number) const { return Times[place(number)]; }
    const uint64_t *ordered() const { return Ordered ? Ordered.get() : Times.get(); }
    uint64_t visibleHead() const { return VisibleFrom > Head ? VisibleFrom : Head; }
    bool isAscending() const { return DescentAt <= Head; }
    // Where a time goes that the ring doesn't count yet.
    uint64_t *behindTail() const { return Times.get() + place(Tail); }
};

// I1 to I6, in as many steps as the ring holds times. For assertions.
bool holds(const TimeRing &ring);

// Allocates the least capacity, to an empty ring. Throws if the memory is refused.
void setUpRing(TimeRing &ring, bool wantsOrdered);

// Room for `more` times behind the tail. Numbers stay, places change. Throws if the ring would take more memory
// than is sensible.
void reserve(TimeRing &ring, uint64_t more);

// Appends a time, whatever it is, then removes from the head on what is more than `window` older, unsigned, up
// to the first that isn't. The number removed.
uint64_t push(TimeRing &ring, uint64_t time, uint64_t window);

// The same for `count` times that stand behind the tail already, in Ordered too where there is one. Needs that
// they ascend, that none is 0 or before Latest, and that there was room for them.
void pushWritten(TimeRing &ring, uint64_t count, uint64_t window);

} // namespace Tessel
