// The inner loop of FCS and FFCS: how many stops lie before each start less a lag, summed over the starts. No
// lock and no thread.
//
// With ascending starts and stops this number, the rank, only rises from start to start, so a cursor for each
// lag finds it, in time starts x lags. The pairs in a lag bin are the difference of the sums at its ends.
#pragma once

#include <cstdint>
#include <vector>

namespace Tessel {

// A stop that is exactly `lag` before a start.
struct RankTie
{
    uint64_t Lag, Start;       // indices
    uint64_t RankBefore, Rank; // of the start before it (of the first start: the cursor given), and of it
};

// J1: all times and lags are below 2^63.
// J2: the starts ascend, and so do the stops from the lowest cursor on; those before it aren't read.
// J3: behind the last stop there are StopsBehind times INT64_MAX.
// J4: a cursor is at most the rank of the first start.
struct RankJob
{
    static constexpr uint64_t StopsBehind = 8;
    static constexpr uint64_t LagsAtOnce = 16; // more are done in groups

    const uint64_t *Starts;
    uint64_t StartCount; // above 0
    const uint64_t *Stops;
    const uint64_t *Lags;
    uint64_t LagCount;
    uint64_t *Cursors; // for each lag an index into the stops; becomes the rank of the last start
    uint64_t *Sums;    // for each lag the sum of ranks, added
};

// J1 to J4. For assertions.
bool holds(const RankJob &job);

// Needs J1 to J4.
void rankSums(const RankJob &job);
// The same, and appends every tie, those of a lag in the order of starts.
void rankSums(const RankJob &job, std::vector<RankTie> &ties);

} // namespace Tessel
