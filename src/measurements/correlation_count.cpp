// The event loops of the correlation.
#include "measurements/correlation_count.h"

#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

namespace {

// The value of the element that was counted last.
uint64_t scanG2(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    if (work.Lags == 0) return 0;
    uint64_t *counts = work.Rows[row].get(), lastBin = 0;
    for (uint64_t i = ring.Tail; i > ring.Head; --i) {
        const uint64_t entry = ring.time(i - 1);
        if (entry == 0) break;
        if (entry == time) {
            ++work.Rows[0][0];
            ++work.Rows[1][0];
            continue;
        }
        const uint64_t bin = (time - entry) / work.Params.CorrBinWidth;
        if (bin >= work.Lags) break;
        ++counts[bin];
        lastBin = bin;
    }
    return counts[lastBin];
}

// Whether the element counted last holds at least `limit`.
bool countG2Event(CorrelationWork &work, const CorrelatedEvent &event, uint64_t limit)
{
    bool reached = false;
    auto countOn = [&](size_t channel) {
        if (work.FirstTime[channel] == 0) work.FirstTime[channel] = event.Time;
        ++work.CorrCounts[channel];
        if (scanG2(work, channel, work.Rings[1 - channel], event.Time) >= limit) reached = true;
        work.LastTimes[channel] = event.Time;
        push(work.Rings[channel], event.Time, work.Params.CorrWindow);
    };
    if (event.First) countOn(0);
    if (event.Second) countOn(1);
    return reached;
}

// Where the cursor comes to rest: at the number of entries that are younger than the lag. Of entries exactly as
// old as the lag it takes in some, all or none, depending on where it comes from.
uint64_t walked(uint64_t cursor, uint64_t lag, const TimeRing &ring, uint64_t time)
{
    const uint64_t count = ring.count();
    auto ageOf = [&](uint64_t place) { return time - ring.time(ring.Tail - place); }; // the newest is at 1
    for (;;) {
        if (cursor == 0) {
            if (ageOf(1) >= lag) return cursor;
            ++cursor;
        } else if (cursor < count) {
            if (ageOf(cursor + 1) >= lag) {
                if (ageOf(cursor) <= lag) return cursor;
                --cursor;
            } else
                ++cursor;
        } else if (cursor == count) {
            if (ageOf(count) <= lag) return cursor;
            --cursor;
        } else
            --cursor;
    }
}

bool isAskedToEnd(const CorrelationWork &work)
{
    return work.Control && (work.Control->Aborted || isTimeOver(*work.Control));
}

} // namespace

void scanLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    const auto &edges = work.Grid.Edges, &widths = work.Grid.Widths;
    const uint64_t first = edges.front(), top = edges.back() + widths.back();
    uint64_t *counts = work.Rows[row].get(), bin = 0;
    for (uint64_t i = ring.Tail; i > ring.Head; --i) {
        const uint64_t entry = ring.time(i - 1), age = time - entry;
        if (entry == 0) return;
        if (age > edges[bin] + widths[bin]) {
            if (age > top) return;
            while (age > edges[bin] + widths[bin])
                if (++bin == work.Lags) return;
            if (age <= first) continue;
        } else if (bin == 0 && age <= first)
            continue;
        ++counts[bin];
    }
}

void walkLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    if (ring.count() == 0) return;
    auto &cursors = work.LagCursors[row];
    uint64_t *counts = work.Rows[row].get();
    for (size_t k = 0; k < work.Lags; ++k) {
        // The first walk takes as many steps as there are lags and entries, multiplied.
        if (k % 64 == 63 && isAskedToEnd(work)) return;
        cursors[k] = walked(cursors[k], work.Grid.Edges[k], ring, time);
        if (k > 0) counts[k - 1] += cursors[k] - cursors[k - 1];
    }
}

uint64_t countG2Until(CorrelationWork &work, const TimedEvents &events, uint64_t limit, bool &reached)
{
    reached = false;
    for (uint64_t i = 0; i < events.Count; ++i) {
        if (!isCorrelated(work.Params, events.Channels[i])) continue;
        reached = countG2Event(work, correlated(work.Params, events.Times[i], events.Channels[i]), limit);
        if (reached) return i + 1;
    }
    return events.Count;
}

void countG2Events(CorrelationWork &work, const TimedEvents &events)
{
    for (uint64_t i = 0; i < events.Count; ++i)
        if (isCorrelated(work.Params, events.Channels[i]))
            countG2Event(work, correlated(work.Params, events.Times[i], events.Channels[i]), UINT64_MAX);
}

uint64_t blockWithinReach(const CorrelationWork &work)
{
    constexpr uint64_t steps = 10'000'000; // some ten milliseconds
    const uint64_t entries = work.Rings[0].count() + work.Rings[1].count(), lags = 2 * work.Lags;
    uint64_t stepsOfEvent = 0;
    switch (work.Params.CorrMode) {
    case CorrMode::G2: stepsOfEvent = entries / 50; break; // few of them are in reach of its window
    case CorrMode::FCS: stepsOfEvent = std::min(entries, lags); break;
    default: stepsOfEvent = lags; break;
    }
    return std::clamp<uint64_t>(steps / (stepsOfEvent + 1), 1, blockOf(work.Params));
}

void countCorrelation(CorrelationWork &work, const TimedEvents &events)
{
    switch (work.Params.CorrMode) {
    case CorrMode::G2: countG2Block(work, events); break;
    default: countLagsBlock(work, events); break;
    }
}

} // namespace Tessel
