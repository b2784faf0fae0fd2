// The block loop of FCS and FFCS.
//
// A block is cut into stretches in which time ascends over both channels and over all that the rings hold; of
// these the pairs are counted by ranks, all events at once. An event that breaks the order is counted alone.
#include "measurements/correlation_count.h"
#include "measurements/lags_stretch.h"
#include "measurements/rank_sums.h"

#include <algorithm>
#include <cassert>
#include <limits>

namespace Tessel {

namespace {

constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

bool isFFCS(const CorrelationWork &work)
{
    return work.Params.CorrMode == CorrMode::FFCS;
}

// From where on events keep S1 to S5 in an empty stretch.
uint64_t regularFrom(const CorrelationWork &work)
{
    const auto &lags = work.SearchLags;
    const bool isOpen = work.Gate && (work.FirstTime[0] != 0 || work.Params.CorrFromStart);
    if (!isOpen || lags.empty()) return never; // S1
    const bool ascend = work.Rings[0].isAscending() && work.Rings[1].isAscending();
    if (isFFCS(work) && (lags[0] == 0 || !ascend)) return never; // S4
    uint64_t from = 1;                                           // S3
    for (const TimeRing &ring : work.Rings) {
        if (ring.count() > 0) from = std::max(from, ring.Latest);                                      // S2
        if (!isFFCS(work) && ring.LateUntil != 0) from = std::max(from, ring.LateUntil + lags[0] + 1); // S5
    }
    return from;
}

// The number of the first of the times from `from` to below `to` that isn't more than the lag older.
uint64_t firstWithin(const TimeRing &ring, uint64_t from, uint64_t to, uint64_t time, uint64_t lag)
{
    const uint64_t *ordered = ring.ordered();
    const auto *found = std::partition_point(ordered + ring.place(from), ordered + ring.place(to),
                                             [=](uint64_t entry) { return time - entry > lag; });
    return ring.Base + static_cast<uint64_t>(found - ordered);
}

// The scan skips times up to the first edge as long as it is in the first bin. One of them may have been
// counted there, with the age of an earlier time that follows it.
void uncountSkipped(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    const uint64_t first = work.SearchLags[0], end = work.SearchLags[1];
    for (uint64_t n = ring.Tail; n > ring.visibleHead(); --n) {
        const uint64_t age = time - ring.time(n - 1), countedAge = time - ring.ordered()[ring.place(n - 1)];
        if (countedAge > end) break;
        if (age <= first && countedAge > first) --work.Rows[row][0];
    }
}

// The pairs of an event one by one, from the newest time back.
void countBack(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    const std::vector<uint64_t> &lags = work.SearchLags;
    uint64_t *counts = work.Rows[row].get();
    for (uint64_t n = ring.Tail; n > ring.visibleHead(); --n) {
        const uint64_t countedAge = time - ring.ordered()[ring.place(n - 1)];
        if (countedAge > lags.back()) return;
        if (countedAge <= lags[0]) continue;
        const uint64_t bin = binOf(work.Bins, lags.data(), countedAge);
        if (bin > 0 || time - ring.time(n - 1) > lags[0]) ++counts[bin];
    }
}

// FCS of one event: by its pairs, or by searching the ends of the bins from the newest time back, whichever are
// fewer. If a time of the ring is later than the event, at which a scan ends, the scan itself counts.
void searchLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    const std::vector<uint64_t> &lags = work.SearchLags;
    if (lags.empty() || time < ring.Latest) return scanLags(work, row, ring, time);
    if (ring.count() < work.Lags && !work.Bins.First.empty()) return countBack(work, row, ring, time);
    const uint64_t head = ring.visibleHead();
    uint64_t notBeyond = firstWithin(ring, head, ring.Tail, time, lags[0]);
    for (size_t k = 0; k < work.Lags; ++k) {
        const uint64_t next = firstWithin(ring, head, notBeyond, time, lags[k + 1]);
        work.Rows[row][k] += notBeyond - next;
        notBeyond = next;
    }
    if (ring.Ordered) uncountSkipped(work, row, ring, time);
}

void countAlone(CorrelationWork &work, const CorrelatedEvent &event)
{
    if (isFFCS(work))
        countLagsEvent(work, event, walkLags);
    else
        countLagsEvent(work, event, searchLags);
}

void fence(TimeRing &ring, uint64_t count)
{
    const uint64_t end = ring.place(ring.Tail) + count;
    std::fill_n(ring.Times.get() + end, RankJob::StopsBehind, INT64_MAX);
    if (ring.Ordered) std::fill_n(ring.Ordered.get() + end, RankJob::StopsBehind, INT64_MAX);
}

// The events of a channel become times of its ring.
void pushStretch(CorrelationWork &work, size_t channel, uint64_t count)
{
    TimeRing &ring = work.Rings[channel];
    if (work.FirstTime[channel] == 0) work.FirstTime[channel] = *ring.behindTail();
    work.CorrCounts[channel] += count;
    pushWritten(ring, count, work.Grid.Edges.back());
    work.LastTimes[channel] = ring.Latest;
}

// Whether it is worth waking the helpers: some tens of microseconds of work.
bool isWorthSharing(const CorrelationWork &work, const Stretch &stretch)
{
    constexpr uint64_t ranks = 200'000;
    return 2 * (stretch.Count[0] + stretch.Count[1]) * work.SearchLags.size() >= ranks;
}

template <class CountPart>
void countParts(CorrelationWork &work, const Stretch &stretch, const CountPart &countPart)
{
    if (work.Helpers && isWorthSharing(work, stretch)) return work.Helpers->share(work.PartCount, countPart);
    for (uint64_t part = 0; part < work.PartCount; ++part) countPart(part);
}

// Needs S1 to S5, and leaves an empty stretch.
void countStretch(CorrelationWork &work, Stretch &stretch)
{
    if (stretch.Count[0] + stretch.Count[1] == 0) return;
    assert(holds(work, stretch));
    for (size_t r = 0; r < 2; ++r) fence(work.Rings[r], stretch.Count[r]);
    const bool isFCS = !isFFCS(work);
    work.PartCount = 0;
    for (size_t row = 0; row < corrRowCount; ++row) {
        if (stretch.Count[row / 2] == 0) continue;
        work.Sums[row].assign(work.SearchLags.size(), 0);
        (isFCS ? addFcsParts : addFfcsParts)(work, rowStretch(work, stretch, row));
    }
    countParts(work, stretch, [&](uint64_t index) {
        LagsPart &part = work.Parts[index];
        (isFCS ? countFcsPart : countFfcsPart)(work, rowStretch(work, stretch, part.Row), part);
    });
    for (size_t row = 0; row < corrRowCount; ++row)
        if (stretch.Count[row / 2] > 0)
            (isFCS ? finishFcsRow : finishFfcsRow)(work, rowStretch(work, stretch, row));
    for (size_t r = 0; r < 2; ++r)
        if (stretch.Count[r] > 0) pushStretch(work, r, stretch.Count[r]);
    stretch.Count = {};
}

// Keeps S1 to S5 for an event from RegularFrom on, below the limit.
void append(CorrelationWork &work, Stretch &stretch, const CorrelatedEvent &event)
{
    auto appendTo = [&](size_t channel, uint64_t othersBefore) {
        TimeRing &ring = work.Rings[channel];
        const uint64_t at = stretch.Count[channel]++;
        ring.Times[ring.place(ring.Tail) + at] = event.Time;
        if (ring.Ordered) ring.Ordered[ring.place(ring.Tail) + at] = event.Time;
        work.Seen[channel][at] = static_cast<uint32_t>(othersBefore);
    };
    if (event.First) appendTo(0, stretch.Count[1]);
    if (event.Second) appendTo(1, stretch.Count[0]);
    stretch.RegularFrom = event.Time;
}

} // namespace

void countLagsBlock(CorrelationWork &work, const TimedEvents &events)
{
    for (size_t r = 0; r < 2; ++r) {
        reserve(work.Rings[r], events.Count);
        work.Seen[r].resize(events.Count);
    }
    Stretch stretch;
    stretch.RegularFrom = regularFrom(work);
    for (uint64_t i = 0; i < events.Count; ++i) {
        if (!isCorrelated(work.Params, events.Channels[i])) continue;
        const CorrelatedEvent event = correlated(work.Params, events.Times[i], events.Channels[i]);
        if (event.Time >= stretch.RegularFrom && event.Time < TimeRing::TimeLimit) {
            append(work, stretch, event);
            continue;
        }
        countStretch(work, stretch);
        countAlone(work, event);
        stretch.RegularFrom = regularFrom(work);
    }
    countStretch(work, stretch);
}

} // namespace Tessel
