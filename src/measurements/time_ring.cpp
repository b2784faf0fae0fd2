#include "measurements/time_ring.h"

#include <algorithm>
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

// The live part into `fresh`, at its front; or within the same memory.
void moveLive(const TimeRing &ring, uint64_t *from, uint64_t *to)
{
    const uint64_t *live = from + (ring.Head - ring.Base);
    std::copy(live, live + ring.count(), to + TimeRing::FrontSpace);
}

void grow(TimeRing &ring, uint64_t needed)
{
    const uint64_t capacity = std::min(std::max(2 * ring.Capacity, 2 * needed), ring.MaxCapacity);
    if (capacity <= ring.Capacity || capacity < needed)
        throw std::length_error("The correlation window holds more events than memory takes");
    PageArray<uint64_t> times, ordered;
    if (!times.allocate(capacity) || (ring.Ordered && !ordered.allocate(capacity))) throw std::bad_alloc();
    moveLive(ring, ring.Times.get(), times.get());
    if (ring.Ordered) moveLive(ring, ring.Ordered.get(), ordered.get());
    ring.Times = std::move(times);
    ring.Ordered = std::move(ordered);
    ring.Capacity = capacity;
}

// The times behind `late` are lowered to it: whoever looks back from now on meets `late` first.
void lowerOrdered(TimeRing &ring, uint64_t late)
{
    if (!ring.Ordered) {
        if (!ring.Ordered.allocate(ring.Capacity)) throw std::bad_alloc();
        const uint64_t *times = ring.Times.get();
        std::copy(times + (ring.Head - ring.Base), times + (ring.Tail - ring.Base),
                  ring.Ordered.get() + (ring.Head - ring.Base));
    }
    for (uint64_t i = ring.Tail; i > ring.visibleHead() && ring.Ordered[i - 1 - ring.Base] > late; --i) {
        ring.LateUntil = std::max(ring.LateUntil, ring.time(i - 1));
        ring.Ordered[i - 1 - ring.Base] = late;
    }
}

void findLatest(TimeRing &ring)
{
    const uint64_t *times = ring.Times.get();
    const uint64_t *latest = std::max_element(times + (ring.Head - ring.Base), times + (ring.Tail - ring.Base));
    ring.Latest = *latest;
    ring.LatestAt = static_cast<uint64_t>(latest - times) + ring.Base;
}

uint64_t removeOld(TimeRing &ring, uint64_t time, uint64_t window)
{
    const uint64_t *times = ring.Times.get() + (ring.Head - ring.Base);
    uint64_t old = 0;
    while (time - times[old] > window) ++old; // the new time itself ends the search
    ring.Head += old;
    if (ring.count() == 1) ring.LateUntil = 0;
    if (ring.LatestAt < ring.Head) findLatest(ring);
    return old;
}

} // namespace

void setUpRing(TimeRing &ring, bool wantsOrdered)
{
    ring.WantsOrdered = wantsOrdered;
    if (ring.MaxCapacity == 0) ring.MaxCapacity = sensibleCapacity();
    ring.Capacity = TimeRing::MinCapacity;
    if (!ring.Times.allocate(ring.Capacity)) throw std::bad_alloc();
}

void reserve(TimeRing &ring, uint64_t more)
{
    constexpr uint64_t cheapMove = 8192;
    const uint64_t unused = ring.Head - ring.Base - TimeRing::FrontSpace, live = ring.count();
    const uint64_t needed = TimeRing::FrontSpace + live + more + TimeRing::BackSpace;
    if (needed > ring.Capacity - ring.Capacity / 4)
        grow(ring, needed); // a ring that is nearly full would move back too often
    else if (unused >= std::max(2 * live, cheapMove) || unused + needed > ring.Capacity) {
        moveLive(ring, ring.Times.get(), ring.Times.get());
        if (ring.Ordered) moveLive(ring, ring.Ordered.get(), ring.Ordered.get());
    } else
        return;
    ring.Base = ring.Head - TimeRing::FrontSpace;
}

uint64_t push(TimeRing &ring, uint64_t time, uint64_t window)
{
    if (ring.Tail - ring.Base + TimeRing::BackSpace >= ring.Capacity) reserve(ring, 1);
    if (ring.count() > 0 && time < ring.time(ring.Tail - 1)) {
        ring.DescentAt = ring.Tail;
        if (ring.WantsOrdered && time != 0) lowerOrdered(ring, time);
    }
    if (time == 0) ring.VisibleFrom = ring.Tail + 1;
    if (time >= ring.Latest || ring.count() == 0) {
        ring.Latest = time;
        ring.LatestAt = ring.Tail;
    }
    ring.Times[ring.Tail - ring.Base] = time;
    if (ring.Ordered) ring.Ordered[ring.Tail - ring.Base] = time;
    ++ring.Tail;
    return removeOld(ring, time, window);
}

void pushWritten(TimeRing &ring, uint64_t count, uint64_t window)
{
    if (count == 0) return;
    ring.Tail += count;
    ring.LatestAt = ring.Tail - 1;
    ring.Latest = ring.time(ring.LatestAt);
    removeOld(ring, ring.Latest, window);
}

} // namespace Tessel
