// What a correlation counts with. Made for each run; guarded by ManisLock.
#pragma once

#include "measurements/age_bins.h"
#include "measurements/lag_grid.h"
#include "measurements/rank_sums.h"
#include "measurements/time_ring.h"
#include "records/params.h"
#include "records/run_control.h"
#include "threads/team.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Tessel {

namespace CorrMode {
inline constexpr uint32_t G2 = 0, FCS = 1, FFCS = 2;
}

// Row | g2                                       | FCS, FFCS
//   0 | CorrChan1 against ring 1: positive lags  | CorrChan1 against ring 0: auto 1
//   1 | CorrChan2 against ring 0: negative lags  | CorrChan1 against ring 1: cross
//   2 |                                          | CorrChan2 against ring 0: cross
//   3 |                                          | CorrChan2 against ring 1: auto 2
inline constexpr size_t corrRowCount = 4;

// FCS: a row's pairs are counted one by one up to SearchLags[Bins], and by ranks from there on.
struct PairSplit
{
    uint64_t Bins = 0;
    uint64_t StartsLeft = 0; // until it is chosen anew
    uint64_t Now = 0;        // bins of the stretch at hand: Bins or none
};

// FCS, FFCS: what any thread may count of a stretch while others count the rest of it. Each writes its row's
// sums from From on, or what no other part has.
enum class LagsPartKind { Pairs, Clipped, Ranks };

struct LagsPart
{
    LagsPartKind Kind = LagsPartKind::Ranks;
    size_t Row = 0;
    uint64_t From = 0, To = 0;   // lags
    std::vector<RankTie> Ties{}; // FFCS; kept for the next stretch
};

// Which events could be the later one of a pair: at a lag, those that far from the first event of the two
// channels. What could be the earlier one is found in the rings, until the run ends.
struct LagReach
{
    uint64_t First = 0; // ps; 0: none yet
    size_t Passed = 0;  // lags that lie before the latest event
    // By channel, for each lag: events before First + lag, if it has passed.
    std::array<std::vector<uint64_t>, 2> LaterFrom;
    std::array<std::vector<uint64_t>, 2> Earlier; // by channel, for each lag, once the run has ended
};

struct CorrelationWork
{
    CorrelationParams Params; // as they were at the run's start
    uint64_t Lags = 0;        // elements of a row
    LagGrid Grid;             // FCS, FFCS
    std::array<PageArray<uint64_t>, corrRowCount> Rows;
    // FCS: an age counts in bin k if it is beyond SearchLags[k] and not beyond SearchLags[k + 1]; empty where
    // the bins aren't contiguous. FFCS: the edges. Ascends.
    std::vector<uint64_t> SearchLags;
    AgeBins Bins; // FCS: of SearchLags
    std::array<PairSplit, corrRowCount> Splits;
    // FFCS: for each row and edge the ring's entries that are younger. FCS: for each row and lag about how many
    // aren't beyond it; only says where a search begins.
    std::array<std::vector<uint64_t>, corrRowCount> LagCursors;
    std::array<TimeRing, 2> Rings;                    // of CorrChan1 and CorrChan2
    std::array<uint64_t, 2> CorrCounts{};             // events counted on each channel
    std::array<uint64_t, 2> FirstTime{}, LastTimes{}; // ps; first counted, last seen; 0: none
    bool Gate = true;                                 // FCS, FFCS: the longest lag has passed once
    LagReach Reach;                                   // FCS, FFCS from the start
    bool WasCleared = false;
    uint64_t NumAtZero = 0;                    // g2: events of CorrChan1 at time 0, which have no pairs
    std::array<std::vector<uint32_t>, 2> Seen; // of each event of a block: times of the other ring before it
    std::array<std::vector<uint64_t>, corrRowCount> Sums; // FCS, FFCS: of the ranks of a stretch, for each lag
    std::array<std::vector<uint64_t>, corrRowCount>
        Newest;                  // FCS: of each start of a stretch the stop before it
    std::vector<LagsPart> Parts; // of a stretch; the first PartCount of them, the others keep their memory
    uint64_t PartCount = 0;
    std::array<bool, 2> HasFewPairs{};   // g2: by channel, how a row is counted
    Team *Helpers = nullptr;             // of the thread that counts; null: it counts alone
    const RunControl *Control = nullptr; // of the run; null: there is none
};

} // namespace Tessel
