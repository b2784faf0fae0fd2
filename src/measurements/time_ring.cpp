#include "measurements/time_ring.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace Tessel {

namespace {

// A quarter of the machine's memory for a ring: two rings, and one of them moving, still fit.
uint64_t sensibleCapacity()
{
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
    const uint64_t bytes = pages > 0 && pageSize > 0
                               ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize)
                               : uint64_t{4} << 30;
    return std::max(bytes / 4 / sizeof(uint64_t), 2 * TimeRing::MinCapacity);
}

// The live part, from the front of `to` on; within one memory or into another.
void moveLive(const TimeRing &ring, const uint64_t *from, uint64_t *to)
{
    const uint64_t *live = from + ring.place(ring.Head);
    std::copy(live, live + ring.count(), to + TimeRing::FrontSpace);
}

void moveToFront(TimeRing &ring)
{
    moveLive(ring, ring.Times.get(), ring.Times.get());
    if (ring.Ordered) moveLive(ring, ring.Ordered.get(), ring.Ordered.get());
    ring.Base = ring.Head - TimeRing::FrontSpace;
}

void grow(TimeRing &ring, uint64_t needed)
{
    const uint64_t capacity = std::min(std::max(2 * ring.Capacity, 2 * needed), ring.MaxCapacity);
    if (capacity <= ring.Capacity || capacity < needed)
        throw std::length_error("The correlation window holds more events than memory takes");
    PageArray<uint64_t> times, ordered;
    if (!allocatePages(times, capacity) || (ring.Ordered && !allocatePages(ordered, capacity)))
        throw std::bad_alloc();
    moveLive(ring, ring.Times.get(), times.get());
    if (ring.Ordered) moveLive(ring, ring.Ordered.get(), ordered.get());
    ring.Times = std::move(times);
    ring.Ordered = std::move(ordered);
    ring.Capacity = capacity;
    ring.Base = ring.Head - TimeRing::FrontSpace;
}

// Needs that the visible times ascend, so that Ordered is as Times.
void startOrdered(TimeRing &ring)
{
    if (!allocatePages(ring.Ordered, ring.Capacity)) throw std::bad_alloc();
    const uint64_t *times = ring.Times.get();
    std::copy(times + ring.place(ring.Head), times + ring.place(ring.Tail),
              ring.Ordered.get() + ring.place(ring.Head));
}

// Keeps I5 and I6 for a time that is about to follow later ones: in Ordered these are lowered to it, since a
// look back from then on meets it first.
void lowerOrdered(TimeRing &ring, uint64_t late)
{
    if (!ring.Ordered) startOrdered(ring);
    for (uint64_t n = ring.Tail; n > ring.visibleHead() && ring.Ordered[ring.place(n - 1)] > late; --n) {
        const uint64_t lowered = ring.time(n - 1);
        if (lowered < TimeRing::TimeLimit) ring.LateUntil = std::max(ring.LateUntil, lowered);
        ring.Ordered[ring.place(n - 1)] = late;
    }
}

void findLatest(TimeRing &ring)
{
    const uint64_t *times = ring.Times.get();
    const uint64_t *latest = std::max_element(times + ring.place(ring.Head), times + ring.place(ring.Tail));
    ring.Latest = *latest;
    ring.LatestAt = static_cast<uint64_t>(latest - times) + ring.Base;
}

// Needs that `time` is in the ring, where it ends the search. `ascends`: there are many, in the order of time.
uint64_t removeOld(TimeRing &ring, uint64_t time, uint64_t window, bool ascends)
{
    const uint64_t *times = ring.Times.get() + ring.place(ring.Head);
    const auto isOld = [=](uint64_t entry) { return time - entry > window; };
    uint64_t old = 0;
    if (ascends)
        old = static_cast<uint64_t>(std::partition_point(times, times + ring.count(), isOld) - times);
    else
        while (isOld(times[old])) ++old;
    ring.Head += old;
    if (ring.count() == 1) ring.LateUntil = 0;
    if (ring.LatestAt < ring.Head) findLatest(ring);
    return old;
}

bool hasRoom(const TimeRing &ring) // I1
{
    return ring.place(ring.Head) >= TimeRing::FrontSpace && ring.Head <= ring.Tail &&
           ring.place(ring.Tail) + TimeRing::BackSpace <= ring.Capacity;
}

bool holdsLatest(const TimeRing &ring) // I4
{
    return ring.count() == 0 ||
           (ring.Head <= ring.LatestAt && ring.LatestAt < ring.Tail && ring.time(ring.LatestAt) == ring.Latest);
}

} // namespace

bool holds(const TimeRing &ring)
{
    bool all = hasRoom(ring) && holdsLatest(ring) && ring.VisibleFrom <= ring.Tail;
    uint64_t earliest = std::numeric_limits<uint64_t>::max();
    for (uint64_t n = ring.Tail; all && n-- > ring.Head;) {
        const uint64_t time = ring.time(n);
        earliest = std::min(earliest, time);
        all &= time <= ring.Latest;
        if (n > ring.Head && n > ring.DescentAt) all &= time >= ring.time(n - 1);
        if (n < ring.VisibleFrom) continue;
        all &= time != 0;
        if (!ring.WantsOrdered) continue;
        all &= ring.ordered()[ring.place(n)] == earliest;
        all &= time == earliest || time >= TimeRing::TimeLimit || time <= ring.LateUntil;
    }
    return all;
}

void setUpRing(TimeRing &ring, bool wantsOrdered)
{
    ring.WantsOrdered = wantsOrdered;
    if (ring.MaxCapacity == 0) ring.MaxCapacity = sensibleCapacity();
    ring.Capacity = TimeRing::MinCapacity;
    if (!allocatePages(ring.Times, ring.Capacity)) throw std::bad_alloc();
}

void reserve(TimeRing &ring, uint64_t more)
{
    constexpr uint64_t cheapMove = 8192;
    const uint64_t gone = ring.place(ring.Head) - TimeRing::FrontSpace, live = ring.count();
    const uint64_t needed = TimeRing::FrontSpace + live + more + TimeRing::BackSpace;
    if (needed > ring.Capacity - ring.Capacity / 4)
        grow(ring, needed); // a ring that is nearly full would move back too often
    else if (gone >= std::max(2 * live, cheapMove) || gone + needed > ring.Capacity)
        moveToFront(ring);
    assert(ring.place(ring.Tail) + more + TimeRing::BackSpace <= ring.Capacity);
}

uint64_t push(TimeRing &ring, uint64_t time, uint64_t window)
{
    if (ring.place(ring.Tail) + TimeRing::BackSpace >= ring.Capacity) reserve(ring, 1);
    if (ring.count() > 0 && time < ring.time(ring.Tail - 1)) {
        ring.DescentAt = ring.Tail;
        if (ring.WantsOrdered && time != 0) lowerOrdered(ring, time);
    }
    if (time == 0) ring.VisibleFrom = ring.Tail + 1;
    if (time >= ring.Latest || ring.count() == 0) {
        ring.Latest = time;
        ring.LatestAt = ring.Tail;
    }
    ring.Times[ring.place(ring.Tail)] = time;
    if (ring.Ordered) ring.Ordered[ring.place(ring.Tail)] = time;
    ++ring.Tail;
    const uint64_t removed = removeOld(ring, time, window, false);
    assert(hasRoom(ring) && holdsLatest(ring));
    return removed;
}

void pushWritten(TimeRing &ring, uint64_t count, uint64_t window)
{
    if (count == 0) return;
    assert(ring.time(ring.Tail) != 0 && (ring.count() == 0 || ring.time(ring.Tail) >= ring.Latest));
    ring.Tail += count;
    ring.LatestAt = ring.Tail - 1;
    ring.Latest = ring.time(ring.LatestAt);
    removeOld(ring, ring.Latest, window, ring.isAscending());
    assert(holds(ring));
}

} // namespace Tessel
