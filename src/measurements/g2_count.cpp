// The block loop of g2.
//
// Stops are compared a register at a time. Where the machine can't, and where pairs are rare: how many pairs an
// event has is as random as the light, so a branch at the end of each event's pairs would be guessed wrong most
// of the time. Instead all events of a group are compared with the time before them, then those that had a pair
// with the one before that, and so on: nothing branches on the outcome.
#include "measurements/correlation_count.h"
#include "measurements/g2_row.h"
#include "stream/division.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace Tessel {

namespace {

constexpr uint64_t groupEvents = 512; // their places stay in the first-level cache
constexpr int mostRounds = 24;        // events with more pairs are worth a loop of their own

// The events that have a pair yet to come: event i is compared with the time at Stops[i] next. Distances[i] is
// that of the pair just found, which is its last so far. No stop lies before the fence of its row.
struct G2Group
{
    uint64_t Size = 0;
    std::array<uint64_t, groupEvents> Times;
    std::array<const uint64_t *, groupEvents> Stops;
    std::array<uint64_t, groupEvents> Distances;
};

// Compares `size` events with a time each, as `eventAt` says; those that have a pair there are the group from
// then on. They are packed to the front of it, never beyond the event that is looked at.
template <class Division, class EventAt>
G2Found compareAll(G2Group &group, const G2Row &row, const Division division, uint64_t size, EventAt eventAt)
{
    uint64_t found = 0, equal = 0;
    for (uint64_t i = 0; i < size; ++i) {
        const auto [time, stop] = eventAt(i);
        const uint64_t distance = time - *stop;
        group.Times[found] = time;
        group.Stops[found] = stop - 1;
        group.Distances[found] = distance;
        found += distance < row.Span;
        equal += distance == 0;
    }
    group.Size = found;
    for (uint64_t i = 0; i < found; ++i) ++row.Counts[division(group.Distances[i])];
    return {found, equal};
}

struct G2Event
{
    uint64_t Time;
    const uint64_t *Stop;
};

template <class Division>
G2Found firstRound(G2Group &group, const G2Row &row, const Division division, uint64_t from)
{
    return compareAll(group, row, division, std::min(groupEvents, row.Count - from), [&](uint64_t i) {
        return G2Event{row.Starts[from + i], row.Stops + row.Seen[from + i] - 1};
    });
}

template <class Division>
G2Found nextRound(G2Group &group, const G2Row &row, const Division division)
{
    return compareAll(group, row, division, group.Size, [&](uint64_t i) {
        return G2Event{group.Times[i], group.Stops[i]};
    });
}

template <class Division>
G2Found finishGroup(const G2Group &group, const G2Row &row, const Division division)
{
    G2Found found;
    for (uint64_t i = 0; i < group.Size; ++i) {
        const uint64_t time = group.Times[i];
        for (const uint64_t *stop = group.Stops[i];; --stop) {
            const uint64_t distance = time - *stop;
            if (distance >= row.Span) break;
            ++row.Counts[division(distance)];
            ++found.Pairs;
            found.Equal += distance == 0;
        }
    }
    return found;
}

// Needs R1 to R3.
template <class Division>
G2Found countRow(const G2Row &row, const Division division)
{
    G2Group group;
    G2Found all;
    auto add = [&all](const G2Found &found) {
        all.Pairs += found.Pairs;
        all.Equal += found.Equal;
    };
    for (uint64_t from = 0; from < row.Count; from += groupEvents) {
        add(firstRound(group, row, division, from));
        for (int turn = 1; turn < mostRounds && group.Size > 0; ++turn) add(nextRound(group, row, division));
        add(finishGroup(group, row, division));
    }
    return all;
}

// Writes the times of each channel behind the tail of its ring, without a branch on the channel.
std::array<uint64_t, 2> split(CorrelationWork &work, const TimedEvents &events)
{
    // No channel below the markers matches one that can't be.
    const uint64_t chan1 = work.Params.CorrChan1 < ChannelCode::Special ? work.Params.CorrChan1 : UINT64_MAX;
    const uint64_t chan2 = work.Params.CorrChan2 < ChannelCode::Special ? work.Params.CorrChan2 : UINT64_MAX;
    G2Split out{.Channels = {chan1, chan2},
                .Times = {work.Rings[0].behindTail(), work.Rings[1].behindTail()},
                .Seen = {work.Seen[0].data(), work.Seen[1].data()}};
    const uint64_t done = splitG2Registers(events.Times, events.Channels, events.Count, out);
    auto [count1, count2] = out.Count;
    for (uint64_t i = done; i < events.Count; ++i) {
        const uint64_t time = events.Times[i], channel = events.Channels[i];
        out.Times[0][count1] = time;
        out.Seen[0][count1] = count2;
        count1 += channel == chan1;
        out.Times[1][count2] = time;
        out.Seen[1][count2] = count1;
        count2 += channel == chan2;
    }
    return {count1, count2};
}

// Whether the times behind the ring's tail ascend from its latest one on, and nothing is 0 or could wrap. That
// is what pushWritten needs, and R1. It gives R3 too: a stop leaves the ring when a time comes that is more
// than the window, so Span or more, later. A start from that time on has no bin with the stop, and an earlier
// start ends its search at that time, from which its distance wraps.
bool isRegular(const TimeRing &ring, uint64_t written)
{
    if (ring.VisibleFrom > ring.Head) return false;
    const uint64_t *times = ring.behindTail();
    uint64_t last = ring.count() > 0 ? ring.Latest : 1;
    bool ascends = true;
    for (uint64_t i = 0; i < written; ++i) {
        ascends &= times[i] >= last;
        last = times[i];
    }
    return ascends && last < TimeRing::TimeLimit;
}

void countChannel(CorrelationWork &work, size_t channel, uint64_t written)
{
    TimeRing &other = work.Rings[1 - channel];
    const uint64_t *starts = work.Rings[channel].behindTail();
    const uint64_t span = work.Lags * work.Params.CorrBinWidth;
    std::fill_n(other.Times.get() + other.place(other.Head) - TimeRing::FrontSpace, TimeRing::FrontSpace,
                starts[0] - span); // R2
    const G2Row row{starts,
                    written,
                    work.Seen[channel].data(),
                    other.behindTail(),
                    work.Params.CorrBinWidth,
                    span,
                    work.Rows[channel].get()};
    G2Found found;
    bool &isSparse = work.HasFewPairs[channel]; // as the block before had
    if (isSparse || !countG2Registers(row, found))
        found = withDivision(row.BinWidth, [&row](const auto &division) { return countRow(row, division); });
    isSparse = found.Pairs < written / 2;
    work.Rows[1 - channel][0] += found.Equal; // equal times count in both rows
}

// The events of a channel become times of its ring.
void pushChannel(CorrelationWork &work, size_t channel, uint64_t written)
{
    TimeRing &ring = work.Rings[channel];
    if (work.FirstTime[channel] == 0) work.FirstTime[channel] = *ring.behindTail();
    work.CorrCounts[channel] += written;
    pushWritten(ring, written, work.Params.CorrWindow);
    work.LastTimes[channel] = ring.Latest;
}

} // namespace

void countG2Block(CorrelationWork &work, const TimedEvents &events)
{
    for (size_t channel = 0; channel < 2; ++channel) {
        reserve(work.Rings[channel], events.Count);
        work.Seen[channel].resize(events.Count + G2Split::Behind);
    }
    assert(holds(work.Rings[0]) && holds(work.Rings[1]));
    const auto written = split(work, events);
    if (work.Lags == 0 || !isRegular(work.Rings[0], written[0]) || !isRegular(work.Rings[1], written[1]))
        return countG2Events(work, events);
    for (size_t channel = 0; channel < 2; ++channel)
        if (written[channel] > 0) countChannel(work, channel, written[channel]);
    for (size_t channel = 0; channel < 2; ++channel)
        if (written[channel] > 0) pushChannel(work, channel, written[channel]);
}

} // namespace Tessel
