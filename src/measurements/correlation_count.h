// Pair counting of the correlation: events in, rows of counts out. No lock and no thread.
//
// The block loops give the same counts as the event loops, in whatever order the times come: what they can't
// count they hand to the event loops.
#pragma once

#include "measurements/correlation_work.h"

namespace Tessel {

struct TimedEvents
{
    const uint64_t *Times; // ps
    const uint8_t *Channels;
    uint64_t Count;

    TimedEvents first(uint64_t count) const { return {Times, Channels, count}; }
};

// Block loops take this many events at a time. Of FCS and FFCS a block is worth sharing.
inline constexpr uint64_t g2Block = 8000, lagsBlock = 32'000;

inline uint64_t blockOf(const CorrelationParams &params)
{
    return params.CorrMode == CorrMode::G2 ? g2Block : lagsBlock;
}

// Before they are counted. Events at time 0 come first, so this ends at the first event of almost every block.
inline void noteAtZero(CorrelationWork &work, const TimedEvents &events)
{
    for (uint64_t i = 0; i < events.Count && events.Times[i] == 0; ++i)
        work.NumAtZero += events.Channels[i] == work.Params.CorrChan1;
}

// How many events may be counted between two looks at what is asked of the run, whatever pairs they have.
uint64_t blockWithinReach(const CorrelationWork &work);

// At most a block of events.
void countCorrelation(CorrelationWork &work, const TimedEvents &events);

// g2, event by event, up to the first one after which an element that it counted last holds at least `limit`.
// Returns the number of events taken; `reached`: it ended for that.
uint64_t countG2Until(CorrelationWork &work, const TimedEvents &events, uint64_t limit, bool &reached);

// g2, event by event, for what the block loop can't count.
void countG2Events(CorrelationWork &work, const TimedEvents &events);

// The block loops, by mode.
void countG2Block(CorrelationWork &work, const TimedEvents &events);
void countLagsBlock(CorrelationWork &work, const TimedEvents &events);

// One event of a channel that is correlated.
struct CorrelatedEvent
{
    uint64_t Time;      // ps
    bool First, Second; // on CorrChan1, on CorrChan2
};

inline bool isCorrelated(const CorrelationParams &params, uint8_t channel)
{
    return (channel & ChannelCode::Special) == 0 &&
           (channel == params.CorrChan1 || channel == params.CorrChan2);
}
inline CorrelatedEvent correlated(const CorrelationParams &params, uint64_t time, uint8_t channel)
{
    return {time, channel == params.CorrChan1, channel == params.CorrChan2};
}

// Gate, pair counts and push of an event in FCS and FFCS. `countPairs(work, row, ring, time)` counts the event
// against a ring.
template <class CountPairs>
void countLagsEvent(CorrelationWork &work, const CorrelatedEvent &event, CountPairs countPairs)
{
    auto countOn = [&](size_t channel) {
        if (work.Gate) {
            ++work.CorrCounts[channel];
            countPairs(work, 2 * channel, work.Rings[0], event.Time);
            countPairs(work, 2 * channel + 1, work.Rings[1], event.Time);
        }
        work.LastTimes[channel] = event.Time;
        if (push(work.Rings[channel], event.Time, work.Grid.Edges.back()) > 0) work.Gate = true;
        if (work.FirstTime[channel] == 0 && work.Gate) work.FirstTime[channel] = event.Time;
    };
    if (work.FirstTime[0] == 0) // until the longest lag has passed once, also after a clear
        work.Gate = work.Params.CorrFromStart;
    if (event.First) countOn(0);
    if (event.Second) countOn(1);
}

// The definitions, for any times. FCS: scans a ring from the newest time back. FFCS: moves a row's cursors, and
// counts by them.
void scanLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time);
void walkLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time);

} // namespace Tessel
