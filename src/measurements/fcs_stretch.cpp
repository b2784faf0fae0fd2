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

namespace Tessel {

namespace {

bool hidesTimes(const TimeRing &ring)
{
    return ring.VisibleFrom > ring.Head;
}

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

// The same where the heads alone matter: each is the rank of the newest stop at the window, and no start is so
// long after its newest stop that the lag, which is longer than the window, takes in more than the head leaves.
bool sumHeads(CorrelationWork &work, const RowStretch &row, uint64_t lag, uint64_t window, uint64_t &head,
              uint64_t &sum)
{
    if (!row.Ring.isAscending() || hidesTimes(row.Ring) || row.end(0) == head) return false;
    const uint64_t *stops = row.Ring.Times.get();
    std::vector<uint64_t> &newest = work.Newest[row.Row];
    newest.resize(row.Count);
    uint64_t longest = 0;
    for (uint64_t i = 0; i < row.Count; ++i) {
        newest[i] = stops[row.end(i) - 1];
        longest = std::max(longest, row.Starts[i] - newest[i]);
    }
    if (longest > lag - window) return false;
    rankSums({newest.data(), row.Count, stops, &window, 1, &head, &sum});
    return true;
}

void countClipped(CorrelationWork &work, const RowStretch &row, const LagsPart &part)
{
    const uint64_t window = work.Grid.Edges.back(), head = row.Ring.place(row.Ring.Head);
    std::vector<uint64_t> &cursors = work.LagCursors[row.Row], &sums = work.Sums[row.Row];
    const Ranks ranks = firstRanks(work, row, row.Ring.ordered(), row.Ring.place(row.Ring.visibleHead()), part);
    for (uint64_t k = part.From; k < part.To; ++k) {
        uint64_t place = head;
        if (!sumHeads(work, row, work.SearchLags[k], window, place, sums[k])) {
            place = ranks[k - part.From];
            sums[k] = sumClipped(row, work.SearchLags[k], window, place);
        }
        cursors[k] = row.end(row.Count - 1) - place;
    }
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

// Before the head there is nothing that counts, so a fence there ends each search of pairs. Two rows may have
// pairs with one ring.
void fenceHead(TimeRing &ring, uint64_t before, bool isFirst)
{
    uint64_t *stops = ring.Ordered ? ring.Ordered.get() : ring.Times.get();
    uint64_t &fence = stops[ring.place(ring.Head) - 1];
    const bool isLower = static_cast<int64_t>(before) < static_cast<int64_t>(fence);
    if (isFirst || isLower) fence = before;
}

// The pairs of the first bins, one by one.
void countPairs(CorrelationWork &work, const RowStretch &row, uint64_t bins)
{
    const uint64_t *stops = row.Ring.ordered(), *lags = work.SearchLags.data();
    const uint64_t first = lags[0], last = lags[bins];
    uint64_t *counts = work.Rows[row.Row].get();
    for (uint64_t i = 0; i < row.Count; ++i) {
        const uint64_t start = row.Starts[i], *stop = stops + row.end(i);
        uint64_t age = start - *--stop;
        while (age <= first) age = start - *--stop;
        for (; age <= last; age = start - *--stop) ++counts[binOf(work.Bins, lags, age)];
    }
}

} // namespace

void addFcsParts(CorrelationWork &work, const RowStretch &row)
{
    const auto &lags = work.SearchLags;
    const uint64_t window = work.Grid.Edges.back();
    const auto inWindow =
        static_cast<uint64_t>(std::upper_bound(lags.begin(), lags.end(), window) - lags.begin());
    uint64_t split = inWindow > 0 ? splitOf(work, row, inWindow - 1) : 0;
    if (hidesTimes(row.Ring)) split = 0; // there is no room for a fence
    work.Splits[row.Row].Now = split;
    if (split > 0) {
        const bool isFirst = row.Row < 2 || work.Splits[row.Row - 2].Now == 0;
        fenceHead(work.Rings[row.Row % 2], row.Starts[0] - lags[split] - 1, isFirst);
        addPart(work, LagsPartKind::Pairs, row.Row, 0, split);
    }
    if (inWindow < lags.size()) addPart(work, LagsPartKind::Clipped, row.Row, inWindow, lags.size());
    addRankParts(work, row.Row, split, inWindow);
}

void countFcsPart(CorrelationWork &work, const RowStretch &row, LagsPart &part)
{
    if (part.Kind == LagsPartKind::Pairs) return countPairs(work, row, part.To);
    if (part.Kind == LagsPartKind::Clipped) return countClipped(work, row, part);
    const uint64_t *stops = row.Ring.ordered();
    Ranks ranks = firstRanks(work, row, stops, row.Ring.place(row.Ring.visibleHead()), part);
    rankSums({row.Starts, row.Count, stops, work.SearchLags.data() + part.From, part.To - part.From,
              ranks.data(), work.Sums[row.Row].data() + part.From});
    for (uint64_t k = part.From; k < part.To; ++k)
        work.LagCursors[row.Row][k] = row.end(row.Count - 1) - ranks[k - part.From];
}

void finishFcsRow(CorrelationWork &work, const RowStretch &row)
{
    addDifferences(work, row.Row, work.Splits[row.Row].Now);
}

} // namespace Tessel
