// A stretch of FCS or FFCS: events in the order of time, whose pairs are counted by ranks, all events at once.
// No lock and no thread.
//
// A row counts starts (its events) against stops (the times of a ring). The rank of a start at a lag is the
// place of the first stop that isn't more than the lag older. Both ascend, so stops of the stretch that come
// after a start are never before its rank, and each row can be counted as if the ring had all of them.
#pragma once

#include "measurements/correlation_work.h"

#include <array>

namespace Tessel {

// The events of channel r stand behind the tail of ring r, in Ordered too where there is one; the ring doesn't
// count them yet. `Seen[r][i]` of the work is the number of events of the other channel before event i.
//
// S1: the gate is open, so each of them counts.
// S2: their times ascend over both channels, and none is before the latest one of a ring.
// S3: none is 0, and all are below TimeRing::TimeLimit.
// S4: FFCS: the times of both rings ascend, and no lag is 0, for which a stop after its start would matter.
// S5: FCS: a time of a ring that is followed by an earlier one is more than the first edge older than each of
// them.
struct Stretch
{
    std::array<uint64_t, 2> Count{};
    uint64_t RegularFrom = 0; // ps; an event from here on, below the limit, keeps S1 to S5
};

// S1 to S5, and what the rings must hold for them. For assertions.
bool holds(const CorrelationWork &work, const Stretch &stretch);

// One row of a stretch.
struct RowStretch
{
    size_t Row;
    const TimeRing &Ring;
    const uint64_t *Starts; // ps
    uint64_t Count;         // of starts; above 0
    const uint32_t *Seen;   // of each start: stops before it in this stretch; null: as its index

    uint64_t seen(uint64_t start) const { return Seen ? Seen[start] : start; }
    // The place behind the last stop that comes before the start.
    uint64_t end(uint64_t start) const { return Ring.place(Ring.Tail) + seen(start); }
};

RowStretch rowStretch(const CorrelationWork &work, const Stretch &stretch, size_t row);

// The parts of a row, added to those of the work. Need S1 to S5, and RankJob::StopsBehind fences behind the
// stops.
void addFcsParts(CorrelationWork &work, const RowStretch &row);
void addFfcsParts(CorrelationWork &work, const RowStretch &row);
// A part of them; may throw, if memory is refused.
void countFcsPart(CorrelationWork &work, const RowStretch &row, LagsPart &part);
void countFfcsPart(CorrelationWork &work, const RowStretch &row, LagsPart &part);
// When all parts of the row are counted.
void finishFcsRow(CorrelationWork &work, const RowStretch &row);
void finishFfcsRow(CorrelationWork &work, const RowStretch &row);

void addPart(CorrelationWork &work, LagsPartKind kind, size_t row, uint64_t from, uint64_t to);
// Parts for the ranks of these lags, of about one size.
void addRankParts(CorrelationWork &work, size_t row, uint64_t from, uint64_t to);

// For a part's lags the rank of the first start. The search begins where the cursor stood, if stops that come
// leave its distance from the newest one as it was. `stops`: of the ring, ascending from `head` on.
using Ranks = std::array<uint64_t, RankJob::LagsAtOnce>;
Ranks firstRanks(const CorrelationWork &work, const RowStretch &row, const uint64_t *stops, uint64_t head,
                 const LagsPart &part);

// A bin from `from` on gains the pairs between its two lags: sums[k] - sums[k + 1].
void addDifferences(CorrelationWork &work, size_t row, uint64_t from);

} // namespace Tessel
