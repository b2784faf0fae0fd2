// A row of FFCS, by ranks. What counts is where the walk of each cursor (walkLags) comes to rest.
//
// W1: a cursor may rest at a place if each stop before it is at least the lag old, and each from it on at most
//     the lag. So it may rest from the rank to behind the ties, the stops that are exactly the lag old.
// W2: the walk goes to the nearest of these places.
// W3: stops that come, and stops that go, leave the cursor's distance from the newest stop as it is.
//
// Without a tie the resting place is the rank. rankSums takes it to be so everywhere; the ties are few and are
// corrected after it.
#include "measurements/lags_stretch.h"
#include "measurements/rank_sums.h"

#include <algorithm>

namespace Tessel {

namespace {

// Adds to `sums` by how far the cursors rest behind the ranks, and takes the cursors, distances, from before
// the first start to the last one, of which `ranks` are the ranks.
//
// Cursors[k] is where cursor k rests at start settled[k] - 1; from there to the present tie it rests at ranks.
void resolveTies(const RowStretch &row, const std::vector<RankTie> &ties, const std::vector<uint64_t> &ranks,
                 std::vector<uint64_t> &cursors, std::vector<uint64_t> &sums)
{
    std::vector<uint64_t> settled(cursors.size(), 0);
    const uint64_t *stops = row.Ring.Times.get();
    for (const RankTie &tie : ties) {
        uint64_t &cursor = cursors[tie.Lag];
        if (settled[tie.Lag] != tie.Start) cursor = row.end(tie.Start - 1) - tie.RankBefore;
        uint64_t behindTies = tie.Rank;
        while (stops[behindTies] == stops[tie.Rank]) ++behindTies;
        const uint64_t end = row.end(tie.Start);
        // From a distance beyond place 0 it comes to the first of the places.
        const uint64_t place = cursor > end ? tie.Rank : std::clamp(end - cursor, tie.Rank, behindTies);
        cursor = end - place;
        settled[tie.Lag] = tie.Start + 1;
        sums[tie.Lag] += place - tie.Rank;
    }
    for (size_t k = 0; k < cursors.size(); ++k)
        if (settled[k] != row.Count) cursors[k] = row.end(row.Count - 1) - ranks[k];
}

} // namespace

void countFfcsRow(CorrelationWork &work, const RowStretch &row)
{
    if (row.Ring.count() == 0 && row.seen(row.Count - 1) == 0) return; // a cursor without a stop stays
    const std::vector<uint64_t> &lags = work.SearchLags;
    std::vector<uint64_t> &cursors = work.LagCursors[row.Row];
    const uint64_t *stops = row.Ring.Times.get();
    std::vector<uint64_t> ranks = firstRanks(row, stops, row.Ring.place(row.Ring.Head), lags, cursors);
    std::vector<uint64_t> sums(lags.size());
    std::vector<RankTie> ties;
    rankSums({row.Starts, row.Count, stops, lags.data(), lags.size(), ranks.data(), sums.data()}, ties);
    resolveTies(row, ties, ranks, cursors, sums);
    addDifferences(work.Rows[row.Row].get(), sums);
}

} // namespace Tessel
