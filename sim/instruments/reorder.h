// Events that come nearly in order, put into order. What comes late by a jitter or an offset moves few places,
// so it is inserted from behind.
#pragma once

#include "sim/instruments/event.h"

#include <algorithm>
#include <span>
#include <vector>

namespace Tessel::Sim {

// I1: Events[0..Sorted) ascend, and events of the same time stay as they came.
struct Reorder
{
    std::vector<Event> Events;
    size_t Sorted = 0;
};

inline void sortNew(Reorder &order)
{
    std::vector<Event> &events = order.Events;
    size_t movesLeft = 32 * (events.size() - order.Sorted) + 1024;
    for (size_t i = std::max<size_t>(order.Sorted, 1); i < events.size() && movesLeft > 0; ++i) {
        if (!isEarlier(events[i], events[i - 1])) continue;
        const Event late = events[i];
        size_t at = i;
        for (; at > 0 && isEarlier(late, events[at - 1]); --at) events[at] = events[at - 1];
        events[at] = late;
        movesLeft -= std::min(movesLeft, i - at);
    }
    if (movesLeft == 0) std::stable_sort(events.begin(), events.end(), isEarlier);
    order.Sorted = events.size();
}

// Those before `endPs`; needs all to be sorted. They stay until dropFirst.
inline std::span<const Event> before(const Reorder &order, uint64_t endPs)
{
    const auto end = std::partition_point(order.Events.begin(), order.Events.end(),
                                          [&](const Event &event) { return event.TimePs < endPs; });
    return {order.Events.begin(), end};
}

inline void dropFirst(Reorder &order, size_t count)
{
    order.Events.erase(order.Events.begin(), order.Events.begin() + static_cast<std::ptrdiff_t>(count));
    order.Sorted = order.Events.size();
}

} // namespace Tessel::Sim
