#include "measurements/lag_reach.h"

#include <algorithm>

namespace Tessel {

namespace {

bool hasReach(const CorrelationWork &work)
{
    return work.Params.CorrMode != CorrMode::G2 && work.Params.CorrFromStart && !work.WasCleared;
}

} // namespace

// A block that no lag ends in is passed over; there are few others.
void noteLagsPassed(CorrelationWork &work, const TimedEvents &events)
{
    LagReach &reach = work.Reach;
    const auto &edges = work.Grid.Edges;
    if (!hasReach(work) || reach.Passed == edges.size()) return;
    const uint64_t end = events.Times[events.Count - 1];
    if (reach.First != 0 && end - reach.First < edges[reach.Passed]) return;
    std::array<uint64_t, 2> count = work.CorrCounts;
    for (uint64_t i = 0; i < events.Count && reach.Passed < edges.size(); ++i) {
        if (!isCorrelated(work.Params, events.Channels[i])) continue;
        const CorrelatedEvent event = correlated(work.Params, events.Times[i], events.Channels[i]);
        if (reach.First == 0) reach.First = event.Time;
        for (; reach.Passed < edges.size() && event.Time >= reach.First + edges[reach.Passed]; ++reach.Passed)
            for (size_t channel = 0; channel < 2; ++channel)
                reach.LaterFrom[channel][reach.Passed] = count[channel];
        count[0] += event.First;
        count[1] += event.Second;
    }
}

std::vector<uint64_t> laterEvents(const CorrelationWork &work, size_t channel)
{
    std::vector<uint64_t> later(work.Lags, work.CorrCounts[channel]);
    if (!hasReach(work)) return later;
    for (size_t k = 0; k < work.Lags; ++k)
        later[k] = k < work.Reach.Passed ? later[k] - work.Reach.LaterFrom[channel][k] : 0;
    return later;
}

std::vector<uint64_t> earlierEvents(const CorrelationWork &work, size_t channel)
{
    std::vector<uint64_t> earlier(work.Lags, work.CorrCounts[channel]);
    if (!hasReach(work)) return earlier;
    if (!work.Reach.Earlier[channel].empty()) return work.Reach.Earlier[channel];
    const TimeRing &ring = work.Rings[channel];
    if (!ring.Times) return earlier;
    const uint64_t last = std::max(work.LastTimes[0], work.LastTimes[1]);
    const uint64_t *head = ring.ordered() + ring.place(ring.visibleHead()),
                   *tail = ring.ordered() + ring.place(ring.Tail);
    for (size_t k = 0; k < work.Lags; ++k) {
        const uint64_t lag = std::min(work.Grid.Edges[k], last);
        earlier[k] -= std::min<uint64_t>(earlier[k], tail - std::upper_bound(head, tail, last - lag));
    }
    return earlier;
}

void keepEarlier(CorrelationWork &work)
{
    if (!hasReach(work)) return;
    for (size_t channel = 0; channel < 2; ++channel) work.Reach.Earlier[channel] = earlierEvents(work, channel);
}

} // namespace Tessel
