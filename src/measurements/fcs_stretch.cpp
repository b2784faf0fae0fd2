// A row of FCS: a bin holds the pairs whose age is beyond its first lag and not beyond its second.
//
// Ranks take the same time for each lag. Many narrow bins hold fewer pairs than there are lags; these are
// counted one by one, and the wide bins beyond them by ranks. So the time grows with the lags or the pairs,
// whichever are fewer.
//
// A scan goes back through the ring, and its bin only goes up. So a time that is followed by an earlier one
// counts with the age of the earlier one: the ranks are those of the ordered times.
#include "measurements/lags_stretch.h"
#include "measurements/rank_sums.h"

#include <algorithm>
#include <utility>

namespace Tessel {

namespace {

// The ranks of a lag beyond the window, summed. The ring drops times that aren't beyond such a lag, so the rank
// isn't before the head that the ring would have at each start. `place`: at most the first rank.
uint64_t sumClipped(const RowStretch &row, uint64_t lag, uint64_t window, uint64_t &place)
{
    const uint64_t *times = row.Ring.Times.get(), *ordered = row.Ring.ordered();
    uint64_t head = row.Ring.place(row.Ring.Head), sum = 0;
    for (uint64_t i = 0; i < row.Count; ++i) {
        const uint64_t end = row.end(i);
        if (row.seen(i) > 0)
            while (times[end - 1] - times[head] > window) ++head;
        place = std::max(place, head);
        while (place < end && row.Starts[i] - ordered[place] > lag) ++place;
        sum += place;
    }
    return sum;
}

// Work on a start, in units of a rank.
constexpr double pairWork = 1.5, startWork = 10, worthwhile = 0.25;
constexpr uint64_t startsToLearn = 1024,
                   startsToKeep = 65536; // of a split that is guessed, of one that is known

// Pairs of a start with each stop up to the first lag, and in each bin: from what was counted, or from the
// rate.
struct PairsExpected
{
    const uint64_t *Counts = nullptr;
    double PerCount = 0, PerPs = 0;

    double in(const std::vector<uint64_t> &lags, size_t bin) const
    {
        return Counts ? static_cast<double>(Counts[bin]) * PerCount
                      : static_cast<double>(lags[bin + 1] - lags[bin]) * PerPs;
    }
};

PairsExpected expectPairs(const CorrelationWork &work, const RowStretch &row)
{
    const TimeRing &ring = row.Ring;
    if (ring.count() < 2) return {};
    PairsExpected expected;
    const uint64_t span = ring.Latest - ring.time(ring.Head), starts = work.CorrCounts[row.Row / 2];
    expected.PerPs = static_cast<double>(ring.count()) / std::max(static_cast<double>(span), 1.0);
    if (starts < startsToLearn) return expected;
    expected.Counts = work.Rows[row.Row].get();
    expected.PerCount = 1 / static_cast<double>(starts);
    return expected;
}

// The number of bins that are the least work if their pairs are counted one by one; 0 if that gains little.
uint64_t cheapestSplit(const std::vector<uint64_t> &lags, uint64_t bins, const PairsExpected &expected)
{
    double pairs = static_cast<double>(lags[0]) * expected.PerPs;
    double best = worthwhile * static_cast<double>(lags.size());
    uint64_t split = 0;
    for (uint64_t bin = 0; bin < bins; ++bin) {
        pairs += expected.in(lags, bin);
        const double gain = static_cast<double>(bin + 1) - pairWork * pairs - startWork;
        if (gain <= best) continue;
        best = gain;
        split = bin + 1;
    }
    return split;
}

// `bins`: at most so many may be counted one by one.
uint64_t splitOf(CorrelationWork &work, const RowStretch &row, uint64_t bins)
{
    PairSplit &split = work.Splits[row.Row];
    if (split.StartsLeft == 0 && !work.Bins.First.empty()) {
        const PairsExpected expected = expectPairs(work, row);
        split.Bins = cheapestSplit(work.SearchLags, bins, expected);
        split.StartsLeft = expected.Counts ? startsToKeep : startsToLearn;
    }
    split.StartsLeft -= std::min(split.StartsLeft, row.Count);
    return split.Bins;
}

// The pairs of the first `bins` bins, one by one. `head`: place of the first stop that counts.
void countPairs(CorrelationWork &work, const RowStretch &row, uint64_t head, uint64_t bins)
{
    TimeRing &ring = work.Rings[row.Row % 2];
    uint64_t *stops = ring.Ordered ? ring.Ordered.get() : ring.Times.get();
    const uint64_t *lags = work.SearchLags.data();
    const uint64_t first = lags[0], last = lags[bins];
    uint64_t *counts = work.Rows[row.Row].get();
    const uint64_t hidden = std::exchange(stops[head - 1], row.Starts[0] - last - 1); // ends each search
    for (uint64_t i = 0; i < row.Count; ++i) {
        const uint64_t start = row.Starts[i], *stop = stops + row.end(i);
        uint64_t age = start - *--stop;
        while (age <= first) age = start - *--stop;
        for (; age <= last; age = start - *--stop) ++counts[binOf(work.Bins, lags, age)];
    }
    stops[head - 1] = hidden;
}

} // namespace

void countFcsRow(CorrelationWork &work, const RowStretch &row)
{
    const uint64_t *stops = row.Ring.ordered();
    const uint64_t head = row.Ring.place(row.Ring.visibleHead()), window = work.Grid.Edges.back();
    const auto &all = work.SearchLags;
    const auto inWindow = static_cast<uint64_t>(std::upper_bound(all.begin(), all.end(), window) - all.begin());
    const uint64_t split = inWindow > 0 ? splitOf(work, row, inWindow - 1) : 0;
    if (split > 0) countPairs(work, row, head, split);

    const auto lags = std::span(all).subspan(split);
    const auto cursors = std::span(work.LagCursors[row.Row]).subspan(split);
    std::vector<uint64_t> ranks = firstRanks(row, stops, head, lags, cursors), sums(lags.size());
    const uint64_t byRank = inWindow - split;
    rankSums({row.Starts, row.Count, stops, lags.data(), byRank, ranks.data(), sums.data()});
    for (uint64_t k = byRank; k < lags.size(); ++k) sums[k] = sumClipped(row, lags[k], window, ranks[k]);

    for (size_t k = 0; k < lags.size(); ++k) cursors[k] = row.end(row.Count - 1) - ranks[k];
    addDifferences(work.Rows[row.Row].get() + split, sums);
}

} // namespace Tessel
