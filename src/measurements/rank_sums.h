// The inner loop of FCS and FFCS: how many stops lie before each start less a lag, summed over the starts. No
// lock and no thread.
//
// With ascending starts and stops this number, the rank, only rises from start to start, so a cursor for each
// lag finds it; the cost is starts x lags. The pairs in a lag bin are the difference of the sums at its ends.
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

// All times and lags are below 2^63.
struct RankJob
{
    static constexpr uint64_t StopsBehind = 8;

    const uint64_t *Starts; // ascending
    uint64_t StartCount;
    const uint64_t *Stops; // ascending from the lowest cursor on; behind the last one StopsBehind x INT64_MAX
    const uint64_t *Lags;
    uint64_t LagCount;
    uint64_t
        *Cursors;   // for each lag an index at most the rank of the first start; becomes that of the last one
    uint64_t *Sums; // for each lag the sum of ranks, added
};

void rankSums(const RankJob &job);
// The same, and appends every tie, those of a lag in the order of starts.
void rankSums(const RankJob &job, std::vector<RankTie> &ties);

// In the plainest form.
void rankSumsPlain(const RankJob &job, std::vector<RankTie> *ties);

} // namespace Tessel
