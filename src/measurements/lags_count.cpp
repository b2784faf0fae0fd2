// The block loop of FCS and FFCS.
//
// A block is cut into stretches in which time ascends over both channels and over all that the rings hold; of
// these the pairs are counted by ranks, all events at once. An event that breaks the order is counted alone.
#include "measurements/correlation_count.h"
#include "measurements/rank_sums.h"

#include <algorithm>
#include <limits>

namespace Tessel {

namespace {

constexpr uint64_t timeLimit = uint64_t{1} << 63;
constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

bool isFFCS(const CorrelationWork &work)
{
    return work.Params.CorrMode == CorrMode::FFCS;
}

// The events of a stretch: they stand behind the tails of the rings, which don't count them yet.
struct Stretch
{
    std::array<uint64_t, 2> Count{};
    uint64_t RegularFrom; // ps; an earlier event is counted alone
};

// What a stretch must not begin before.
uint64_t regularFrom(const CorrelationWork &work)
{
    const auto &lags = work.Search.Lags;
    if (!work.Gate || work.FirstTime[0] == 0 || lags.empty()) return never;
    if (isFFCS(work) && (lags[0] == 0 || !work.Rings[0].isAscending() || !work.Rings[1].isAscending()))
        return never;
    uint64_t from = 1; // a time of 0 hides what is older
    for (const TimeRing &ring : work.Rings) {
        if (ring.count() > 0) from = std::max(from, ring.Latest);
        // Up to the first edge the scan looks at a time itself, not at the later ones that fell below it.
        if (!isFFCS(work) && ring.LateUntil != 0 && ring.LateUntil < timeLimit)
            from = std::max(from, ring.LateUntil + lags[0] + 1);
    }
    return from;
}

uint64_t beyond(const uint64_t *times, uint64_t from, uint64_t to, uint64_t time, uint64_t lag)
{
    const auto *found =
        std::partition_point(times + from, times + to, [=](uint64_t entry) { return time - entry > lag; });
    return static_cast<uint64_t>(found - times);
}

// The scan skips times up to the first edge as long as it is in the first bin, though a later one that fell
// below them may be beyond the edge.
void uncountSkipped(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    const uint64_t first = work.Search.Lags[0], end = work.Search.Lags[1];
    const uint64_t *ordered = ring.ordered();
    for (uint64_t i = ring.Tail; i > ring.visibleHead() && time - ordered[i - 1 - ring.Base] <= end; --i)
        if (time - ring.time(i - 1) <= first && time - ordered[i - 1 - ring.Base] > first) --work.Rows[row][0];
}

// FCS of one event, by searching the ends of the bins.
void searchLags(CorrelationWork &work, size_t row, const TimeRing &ring, uint64_t time)
{
    // A scan ends at the first time that is after the event.
    if (work.Search.Lags.empty() || time < ring.Latest) return scanLags(work, row, ring, time);
    const uint64_t *ordered = ring.ordered();
    const uint64_t head = ring.visibleHead() - ring.Base;
    uint64_t rank = ring.Tail - ring.Base;
    for (size_t k = 0; k <= work.Lags; ++k) {
        const uint64_t next = head < rank ? beyond(ordered, head, rank, time, work.Search.Lags[k]) : rank;
        if (k > 0) work.Rows[row][k - 1] += rank - next;
        rank = next;
    }
    if (ring.Ordered) uncountSkipped(work, row, ring, time);
}

void countAlone(CorrelationWork &work, const CorrelatedEvent &event)
{
    if (isFFCS(work))
        countLagsEvent(work, event, [&](size_t row, const TimeRing &ring, uint64_t time) {
            walkLags(work, row, ring, time);
        });
    else
        countLagsEvent(work, event, [&](size_t row, const TimeRing &ring, uint64_t time) {
            searchLags(work, row, ring, time);
        });
}

// One row of a stretch: events of a channel against a ring.
struct RowStretch
{
    size_t Row;
    const TimeRing &Events, &Ring;
    const uint64_t *Starts;
    uint64_t Count;
    const uint32_t *Seen; // of each start: times of the ring before it in this stretch; null: as its index

    uint64_t seen(uint64_t start) const { return Seen ? Seen[start] : start; }
};

RowStretch rowStretch(const CorrelationWork &work, const Stretch &stretch, size_t row)
{
    const size_t channel = row / 2, against = row % 2;
    const TimeRing &events = work.Rings[channel];
    return {row,
            events,
            work.Rings[against],
            events.Times.get() + (events.Tail - events.Base),
            stretch.Count[channel],
            channel == against ? nullptr : work.Seen[channel].data()};
}

// A lag beyond the window: the ring may have dropped times that are not beyond the lag.
void sumClipped(const RowStretch &row, uint64_t lag, uint64_t window, uint64_t &cursor, uint64_t &sum)
{
    const TimeRing &ring = row.Ring;
    const uint64_t *times = ring.Times.get(), *ordered = ring.ordered();
    uint64_t head = ring.Head - ring.Base;
    for (uint64_t i = 0; i < row.Count; ++i) {
        const uint64_t end = ring.Tail - ring.Base + row.seen(i);
        if (row.seen(i) > 0)
            while (times[end - 1] - times[head] > window) ++head;
        cursor = std::max(cursor, head);
        while (cursor < end && row.Starts[i] - ordered[cursor] > lag) ++cursor;
        sum += cursor;
    }
}

// Row k gains the pairs between lag k and lag k + 1.
void addDifferences(CorrelationWork &work, size_t row, const std::vector<uint64_t> &sums)
{
    uint64_t *counts = work.Rows[row].get();
    for (size_t k = 0; k + 1 < sums.size(); ++k) counts[k] += sums[k] - sums[k + 1];
}

void countFcsRow(CorrelationWork &work, const RowStretch &row)
{
    LagSearch &search = work.Search;
    auto &cursors = search.Cursors[row.Row];
    const uint64_t base = row.Ring.Base, head = row.Ring.visibleHead(), window = work.Grid.Edges.back();
    for (uint64_t &cursor : cursors) cursor = std::max(cursor, head) - base;
    std::vector<uint64_t> sums(search.Lags.size());
    uint64_t inWindow = search.Lags.size();
    while (inWindow > 0 && search.Lags[inWindow - 1] > window) --inWindow;
    rankSums(
        {row.Starts, row.Count, row.Ring.ordered(), search.Lags.data(), inWindow, cursors.data(), sums.data()});
    for (uint64_t k = inWindow; k < sums.size(); ++k)
        sumClipped(row, search.Lags[k], window, cursors[k], sums[k]);
    for (uint64_t &cursor : cursors) cursor += base;
    addDifferences(work, row.Row, sums);
}

// Resolves ties as the walk does: a cursor comes from where it stood before, by as many places further as
// times have arrived, and rests at the first place from which it needn't go on. `ranks` holds those before the
// first start, and receives those of the last one.
void resolveTies(const RowStretch &row, const std::vector<RankTie> &ties, uint64_t tail, uint64_t countedAt,
                 std::vector<uint64_t> &ranks, const std::vector<uint64_t> &lastRanks,
                 std::vector<uint64_t> &sums)
{
    std::vector<uint64_t> resolvedAt(ranks.size(), never);
    std::vector<uint64_t> resolved = ranks;
    const uint64_t *stops = row.Ring.Times.get();
    for (const RankTie &tie : ties) {
        const uint64_t start = tie.Start;
        uint64_t from = tie.RankBefore;
        if (start == 0 || resolvedAt[tie.Lag] == start - 1) from = resolved[tie.Lag];
        const uint64_t arrived =
            start == 0 ? tail + row.seen(0) - countedAt : row.seen(start) - row.seen(start - 1);
        uint64_t last = tie.Rank;
        while (stops[last] == stops[tie.Rank]) ++last;
        // A place that has left the ring may lie before element 0.
        resolved[tie.Lag] = static_cast<uint64_t>(std::clamp(
            static_cast<int64_t>(from + arrived), static_cast<int64_t>(tie.Rank), static_cast<int64_t>(last)));
        resolvedAt[tie.Lag] = start;
        sums[tie.Lag] += resolved[tie.Lag] - tie.Rank;
    }
    for (size_t k = 0; k < ranks.size(); ++k)
        ranks[k] = resolvedAt[k] == row.Count - 1 ? resolved[k] : lastRanks[k];
}

void countFfcsRow(CorrelationWork &work, const RowStretch &row)
{
    const TimeRing &ring = row.Ring;
    const uint64_t head = ring.Head - ring.Base, tail = ring.Tail - ring.Base, size = work.Lags;
    if (ring.count() == 0 && row.seen(row.Count - 1) == 0) return; // no count, no walk
    auto &young = work.LagCursors[row.Row];
    const uint64_t countedAt = work.Search.CountedAt[row.Row] - ring.Base; // may be before element 0: wraps
    const uint64_t *times = ring.Times.get();
    std::vector<uint64_t> ranks(size), cursors(size), sums(size);
    for (size_t k = 0; k < size; ++k) {
        ranks[k] = countedAt - young[k];
        const auto before = static_cast<int64_t>(row.Starts[0] - work.Grid.Edges[k]);
        cursors[k] =
            static_cast<int64_t>(ranks[k]) < static_cast<int64_t>(head) ? head : std::min(ranks[k], tail);
        while (cursors[k] > head && static_cast<int64_t>(times[cursors[k] - 1]) >= before) --cursors[k];
    }
    std::vector<RankTie> ties;
    rankSums({row.Starts, row.Count, times, work.Grid.Edges.data(), size, cursors.data(), sums.data()}, ties);
    resolveTies(row, ties, tail, countedAt, ranks, cursors, sums);
    const uint64_t end = tail + row.seen(row.Count - 1);
    for (size_t k = 0; k < size; ++k) young[k] = end - ranks[k];
    work.Search.CountedAt[row.Row] = end + ring.Base;
    addDifferences(work, row.Row, sums);
}

void fence(TimeRing &ring, uint64_t count)
{
    const uint64_t end = ring.Tail - ring.Base + count;
    std::fill_n(ring.Times.get() + end, RankJob::StopsBehind, INT64_MAX);
    if (ring.Ordered) std::fill_n(ring.Ordered.get() + end, RankJob::StopsBehind, INT64_MAX);
}

// The cursors of FCS only go forward. Where time has gone back they start again.
void followTime(CorrelationWork &work, const Stretch &stretch)
{
    uint64_t first = never, last = 0;
    for (size_t r = 0; r < 2; ++r) {
        if (stretch.Count[r] == 0) continue;
        const uint64_t *times = work.Rings[r].Times.get() + (work.Rings[r].Tail - work.Rings[r].Base);
        first = std::min(first, times[0]);
        last = std::max(last, times[stretch.Count[r] - 1]);
    }
    if (first < work.Search.CountedTime)
        for (auto &cursors : work.Search.Cursors) std::fill(cursors.begin(), cursors.end(), 0);
    work.Search.CountedTime = last;
}

void countStretch(CorrelationWork &work, Stretch &stretch)
{
    if (stretch.Count[0] + stretch.Count[1] == 0) return;
    followTime(work, stretch);
    for (size_t r = 0; r < 2; ++r) fence(work.Rings[r], stretch.Count[r]);
    for (size_t row = 0; row < corrRowCount; ++row) {
        const RowStretch part = rowStretch(work, stretch, row);
        if (part.Count == 0) continue;
        if (isFFCS(work))
            countFfcsRow(work, part);
        else
            countFcsRow(work, part);
    }
    for (size_t r = 0; r < 2; ++r) {
        if (stretch.Count[r] == 0) continue;
        TimeRing &ring = work.Rings[r];
        const uint64_t first = ring.time(ring.Tail);
        work.CorrCounts[r] += stretch.Count[r];
        pushWritten(ring, stretch.Count[r], work.Grid.Edges.back());
        work.LastTimes[r] = ring.Latest;
        if (work.FirstTime[r] == 0) work.FirstTime[r] = first;
    }
    stretch.Count = {};
}

void append(CorrelationWork &work, Stretch &stretch, const CorrelatedEvent &event)
{
    auto appendTo = [&](size_t channel, uint64_t othersBefore) {
        TimeRing &ring = work.Rings[channel];
        const uint64_t at = stretch.Count[channel]++;
        ring.Times[ring.Tail - ring.Base + at] = event.Time;
        if (ring.Ordered) ring.Ordered[ring.Tail - ring.Base + at] = event.Time;
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
        if (event.Time >= stretch.RegularFrom && event.Time < timeLimit) {
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
