#include "measurements/lags_stretch.h"

#include <algorithm>

namespace Tessel {

bool holds(const CorrelationWork &work, const Stretch &stretch)
{
    const bool isFFCS = work.Params.CorrMode == CorrMode::FFCS;
    const uint64_t firstLag = work.SearchLags.front();
    bool all = work.Gate && work.FirstTime[0] != 0 && (!isFFCS || firstLag != 0); // S1, S4
    for (const TimeRing &ring : work.Rings) all &= holds(ring) && (!isFFCS || ring.isAscending());
    for (size_t r = 0; r < 2; ++r) {
        const uint64_t *times = work.Rings[r].behindTail(), *end = times + stretch.Count[r];
        if (times == end) continue;
        all &= std::is_sorted(times, end) && times[0] != 0 && end[-1] < TimeRing::TimeLimit; // S2, S3
        for (const TimeRing &ring : work.Rings) {
            all &= ring.count() == 0 || times[0] >= ring.Latest;
            all &= isFFCS || ring.LateUntil == 0 || times[0] > ring.LateUntil + firstLag; // S5
        }
        for (uint64_t i = 0; i < stretch.Count[r]; ++i) {
            const uint64_t others = work.Seen[r][i];
            all &= others == 0 || work.Rings[1 - r].behindTail()[others - 1] <= times[i];
        }
    }
    return all;
}

RowStretch rowStretch(const CorrelationWork &work, const Stretch &stretch, size_t row)
{
    const size_t channel = row / 2, against = row % 2;
    return {row, work.Rings[against], work.Rings[channel].behindTail(), stretch.Count[channel],
            channel == against ? nullptr : work.Seen[channel].data()};
}

std::vector<uint64_t> firstPlaces(const RowStretch &row, const uint64_t *stops, uint64_t head,
                                  const std::vector<uint64_t> &lags, const std::vector<uint64_t> &cursors)
{
    std::vector<uint64_t> places(lags.size());
    const uint64_t end = row.end(0), most = end - head;
    for (size_t k = 0; k < lags.size(); ++k) {
        const auto before = static_cast<int64_t>(row.Starts[0] - lags[k]);
        uint64_t place = end - std::min(cursors[k], most);
        while (place > head && static_cast<int64_t>(stops[place - 1]) >= before) --place;
        places[k] = place;
    }
    return places;
}

void addDifferences(CorrelationWork &work, size_t row, const std::vector<uint64_t> &sums)
{
    uint64_t *counts = work.Rows[row].get();
    for (size_t k = 0; k + 1 < sums.size(); ++k) counts[k] += sums[k] - sums[k + 1];
}

} // namespace Tessel
