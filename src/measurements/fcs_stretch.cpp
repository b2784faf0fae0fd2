// A row of FCS, by ranks: a bin holds the pairs whose age is beyond its first lag and not beyond its second.
//
// A scan goes back through the ring, and its bin only goes up. So a time that is followed by an earlier one
// counts with the age of the earlier one: the ranks are those of the ordered times.
#include "measurements/lags_stretch.h"
#include "measurements/rank_sums.h"

#include <algorithm>

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

} // namespace

void countFcsRow(CorrelationWork &work, const RowStretch &row)
{
    const std::vector<uint64_t> &lags = work.SearchLags;
    std::vector<uint64_t> &cursors = work.LagCursors[row.Row];
    const uint64_t *stops = row.Ring.ordered();
    const uint64_t head = row.Ring.place(row.Ring.visibleHead()), window = work.Grid.Edges.back();
    std::vector<uint64_t> places = firstPlaces(row, stops, head, lags, cursors), sums(lags.size());

    const auto inWindow =
        static_cast<uint64_t>(std::upper_bound(lags.begin(), lags.end(), window) - lags.begin());
    rankSums({row.Starts, row.Count, stops, lags.data(), inWindow, places.data(), sums.data()});
    for (uint64_t k = inWindow; k < lags.size(); ++k) sums[k] = sumClipped(row, lags[k], window, places[k]);

    for (size_t k = 0; k < lags.size(); ++k) cursors[k] = row.end(row.Count - 1) - places[k];
    addDifferences(work, row.Row, sums);
}

} // namespace Tessel
