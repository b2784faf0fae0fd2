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
// the first start to the last one, of which `ranks` are the ranks. Cursors and sums are those of all lags.
//
// Cursors[k] is where cursor k rests at start settled[k] - 1; from there to the present tie it rests at ranks.
void resolveTies(const RowStretch &row, const LagsPart &part, const Ranks &ranks,
                 std::vector<uint64_t> &cursors, std::vector<uint64_t> &sums)
{
    Ranks settled{};
    const uint64_t *stops = row.Ring.Times.get();
    for (const RankTie &tie : part.Ties) {
        const uint64_t lag = part.From + tie.Lag;
        uint64_t &cursor = cursors[lag];
        if (settled[tie.Lag] != tie.Start) cursor = row.end(tie.Start - 1) - tie.RankBefore;
        uint64_t behindTies = tie.Rank;
        while (stops[behindTies] == stops[tie.Rank]) ++behindTies;
        const uint64_t end = row.end(tie.Start);
        // From a distance beyond place 0 it comes to the first of the places.
        const uint64_t place = cursor > end ? tie.Rank : std::clamp(end - cursor, tie.Rank, behindTies);
        cursor = end - place;
        settled[tie.Lag] = tie.Start + 1;
        sums[lag] += place - tie.Rank;
    }
    for (uint64_t k = part.From; k < part.To; ++k)
        if (settled[k - part.From] != row.Count) cursors[k] = row.end(row.Count - 1) - ranks[k - part.From];
}

// A cursor without a stop stays.
bool hasStops(const RowStretch &row)
{
    return row.Ring.count() > 0 || row.seen(row.Count - 1) > 0;
}

} // namespace

void addFfcsParts(CorrelationWork &work, const RowStretch &row)
{
    if (hasStops(row)) addRankParts(work, row.Row, 0, work.SearchLags.size());
}

void countFfcsPart(CorrelationWork &work, const RowStretch &row, LagsPart &part)
{
    const uint64_t *stops = row.Ring.Times.get();
    std::vector<uint64_t> &sums = work.Sums[row.Row];
    Ranks ranks = firstRanks(work, row, stops, row.Ring.place(row.Ring.Head), part);
    part.Ties.clear();
    rankSums({row.Starts, row.Count, stops, work.SearchLags.data() + part.From, part.To - part.From,
              ranks.data(), sums.data() + part.From},
             part.Ties);
    resolveTies(row, part, ranks, work.LagCursors[row.Row], sums);
}

void finishFfcsRow(CorrelationWork &work, const RowStretch &row)
{
    if (hasStops(row)) addDifferences(work, row.Row, 0);
}

} // namespace Tessel
