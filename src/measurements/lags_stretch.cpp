#include "measurements/lags_stretch.h"

#include <algorithm>

namespace Tessel {

bool holds(const CorrelationWork &work, const Stretch &stretch)
{
    const bool isFFCS = work.Params.CorrMode == CorrMode::FFCS;
    const uint64_t firstLag = work.SearchLags.front();
    bool all = work.Gate && (work.FirstTime[0] != 0 || work.Params.CorrFromStart); // S1
    all &= !isFFCS || firstLag != 0;                                               // S4
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

namespace {

// The first place of [head, end) whose stop isn't before `before`, else the end. The stops ascend from `head`
// on, and it is near `place`.
uint64_t rankNear(const uint64_t *stops, uint64_t head, uint64_t end, uint64_t place, int64_t before)
{
    auto isBefore = [=](uint64_t at) { return static_cast<int64_t>(stops[at]) < before; };
    uint64_t low = place, high = place, step = 1;
    if (place > head && !isBefore(place - 1)) {
        for (; low > head && !isBefore(low - 1); step *= 2) {
            high = low - 1;
            low -= std::min(step, low - head);
        }
    } else
        for (; high < end && isBefore(high); step *= 2) {
            low = high + 1;
            high += std::min(step, end - high);
        }
    while (low < high) {
        const uint64_t middle = low + (high - low) / 2;
        if (isBefore(middle))
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

} // namespace

void addPart(CorrelationWork &work, LagsPartKind kind, size_t row, uint64_t from, uint64_t to)
{
    if (work.PartCount == work.Parts.size()) work.Parts.emplace_back();
    LagsPart &part = work.Parts[work.PartCount++];
    part.Kind = kind;
    part.Row = row;
    part.From = from;
    part.To = to;
}

void addRankParts(CorrelationWork &work, size_t row, uint64_t from, uint64_t to)
{
    const uint64_t lags = to - from, parts = (lags + RankJob::LagsAtOnce - 1) / RankJob::LagsAtOnce;
    for (uint64_t part = 0; part < parts; ++part)
        addPart(work, LagsPartKind::Ranks, row, from + lags * part / parts, from + lags * (part + 1) / parts);
}

Ranks firstRanks(const CorrelationWork &work, const RowStretch &row, const uint64_t *stops, uint64_t head,
                 const LagsPart &part)
{
    const std::vector<uint64_t> &cursors = work.LagCursors[row.Row];
    Ranks ranks{};
    const uint64_t end = row.end(0), most = end - head;
    for (uint64_t k = part.From; k < part.To; ++k) {
        const auto before = static_cast<int64_t>(row.Starts[0] - work.SearchLags[k]);
        ranks[k - part.From] = rankNear(stops, head, end, end - std::min(cursors[k], most), before);
    }
    return ranks;
}

void addDifferences(CorrelationWork &work, size_t row, uint64_t from)
{
    const std::vector<uint64_t> &sums = work.Sums[row];
    uint64_t *counts = work.Rows[row].get();
    for (uint64_t k = from; k + 1 < sums.size(); ++k) counts[k] += sums[k] - sums[k + 1];
}

} // namespace Tessel
