// Ranks by comparing the stops behind a cursor, a register of them at a time; below AVX2 four by four.
//
// How far a cursor moves is as random as the light, so the loop doesn't branch on it: mostly one window holds
// all stops that it passes. A few starts are compared with a window at once; only the last of them moves the
// cursor, the others just count. Many lags are worked on in turn, for each cursor waits for its own last
// comparison.
#include "measurements/rank_sums.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measurements/rank_sums_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

constexpr uint64_t LargestGroup = RankJob::LagsAtOnce;

struct RankSearch
{
    const int64_t *Starts, *Stops;
    std::vector<RankTie> *Ties;
};

// The ties of a lag among some starts, found anew. They are few.
HWY_NOINLINE void appendTies(const RankSearch &search, RankTie tie, int64_t lag, uint64_t startCount)
{
    tie.Rank = tie.RankBefore;
    for (const uint64_t end = tie.Start + startCount; tie.Start < end; ++tie.Start) {
        const int64_t before = search.Starts[tie.Start] - lag;
        while (search.Stops[tie.Rank] < before) ++tie.Rank;
        if (search.Stops[tie.Rank] == before) search.Ties->push_back(tie);
        tie.RankBefore = tie.Rank;
    }
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::ScalableTag<int64_t> d{};
using Lanes = hn::Vec<decltype(d)>;
using Chosen = hn::Mask<decltype(d)>;

constexpr size_t LaneCount = hn::MaxLanes(hn::ScalableTag<int64_t>());
constexpr size_t Window = RankJob::StopsBehind; // stops
constexpr uint64_t StartsAtOnce = 4;            // pass about half a window, where starts and stops are alike
static_assert(Window % LaneCount == 0);

// Adds 1 in the chosen lanes.
HWY_INLINE Lanes countIn(Lanes counts, Chosen chosen)
{
#if HWY_TARGET <= HWY_AVX3
    return hn::IfThenElse(chosen, hn::Add(counts, hn::Set(d, 1)), counts);
#else
    return hn::Sub(counts, hn::VecFromMask(d, chosen));
#endif
}

// The lags from From on, `Size` of them.
struct LagGroup
{
    uint64_t From, Size;
    int64_t Lags[LargestGroup];
    uint64_t Ranks[LargestGroup];
    uint64_t Sums[LargestGroup] = {};                         // of the ranks less what is in Counts
    alignas(64) int64_t Counts[LargestGroup][LaneCount] = {}; // stops passed within a window
};

// A stop and a lag may be 2^64 - 2 together, so times are compared as unsigned, by an offset of 2^63.
constexpr int64_t Offset = INT64_MIN;

// Moves the cursors over `Count` starts, from start i on. None goes beyond the stops, since no fence is before
// a start.
template <uint64_t Count, bool FindTies>
HWY_INLINE void passStarts(LagGroup &group, const RankSearch &search, uint64_t i)
{
    Lanes starts[Count];
    HWY_UNROLL(4)
    for (uint64_t n = 0; n < Count; ++n) starts[n] = hn::Set(d, search.Starts[i + n] + Offset);
    for (uint64_t k = 0; k < group.Size; ++k) {
        const auto lag = hn::Set(d, group.Lags[k] + Offset);
        const uint64_t rankBefore = group.Ranks[k];
        uint64_t rank = rankBefore;
        size_t passed = 0;
        Lanes counts = hn::Load(d, group.Counts[k]);
        Chosen tied = hn::FirstN(d, 0);
        do {
            passed = 0;
            HWY_UNROLL(4)
            for (size_t at = 0; at < Window; at += LaneCount) {
                const auto stops = hn::Add(hn::LoadU(d, search.Stops + rank + at), lag);
                HWY_UNROLL(4)
                for (uint64_t n = 0; n < Count; ++n) counts = countIn(counts, hn::Lt(stops, starts[n]));
                passed += hn::CountTrue(d, hn::Lt(stops, starts[Count - 1]));
                HWY_UNROLL(4)
                for (uint64_t n = 0; FindTies && n < Count; ++n) tied = hn::Or(tied, hn::Eq(stops, starts[n]));
            }
            rank += passed;
        } while (HWY_UNLIKELY(passed == Window));
        group.Ranks[k] = rank;
        group.Sums[k] += Count * rankBefore;
        hn::Store(counts, d, group.Counts[k]);
        if (FindTies && HWY_UNLIKELY(!hn::AllFalse(d, tied)))
            appendTies(search, {group.From + k, i, rankBefore, rankBefore}, group.Lags[k], Count);
    }
}

HWY_INLINE uint64_t sumOf(const LagGroup &group, uint64_t k)
{
    return group.Sums[k] + static_cast<uint64_t>(hn::GetLane(hn::SumOfLanes(d, hn::Load(d, group.Counts[k]))));
}

#else

constexpr uint64_t StartsAtOnce = 1;

struct LagGroup
{
    uint64_t From, Size;
    int64_t Lags[LargestGroup];
    uint64_t Ranks[LargestGroup];
    uint64_t Sums[LargestGroup] = {};
};

template <uint64_t, bool FindTies>
void passStarts(LagGroup &group, const RankSearch &search, uint64_t i)
{
    constexpr size_t window = 4;
    static_assert(window <= RankJob::StopsBehind);
    for (uint64_t k = 0; k < group.Size; ++k) {
        const int64_t before = search.Starts[i] - group.Lags[k];
        const uint64_t rankBefore = group.Ranks[k];
        uint64_t rank = rankBefore;
        size_t passed = 0;
        do {
            const int64_t *stops = search.Stops + rank;
            passed = size_t{stops[0] < before} + size_t{stops[1] < before} + size_t{stops[2] < before} +
                     size_t{stops[3] < before};
            rank += passed;
        } while (HWY_UNLIKELY(passed == window));
        group.Ranks[k] = rank;
        group.Sums[k] += rank;
        if (FindTies && HWY_UNLIKELY(search.Stops[rank] == before))
            appendTies(search, {group.From + k, i, rankBefore, rankBefore}, group.Lags[k], 1);
    }
}

uint64_t sumOf(const LagGroup &group, uint64_t k)
{
    return group.Sums[k];
}

#endif

template <bool FindTies>
void rankGroup(const RankJob &job, uint64_t from, uint64_t size, std::vector<RankTie> *ties)
{
    const RankSearch search{reinterpret_cast<const int64_t *>(job.Starts),
                            reinterpret_cast<const int64_t *>(job.Stops), ties};
    LagGroup group;
    group.From = from;
    group.Size = size;
    std::copy_n(job.Lags + from, size, group.Lags);
    std::copy_n(job.Cursors + from, size, group.Ranks);
    uint64_t i = 0;
    for (; i + StartsAtOnce <= job.StartCount; i += StartsAtOnce)
        passStarts<StartsAtOnce, FindTies>(group, search, i);
    for (; i < job.StartCount; ++i) passStarts<1, FindTies>(group, search, i);
    std::copy_n(group.Ranks, size, job.Cursors + from);
    for (uint64_t k = 0; k < size; ++k) job.Sums[from + k] += sumOf(group, k);
}

// Groups of about one size: a small one takes as long as a large one.
template <bool FindTies>
void rankAll(const RankJob &job, std::vector<RankTie> *ties)
{
    const uint64_t groups = (job.LagCount + LargestGroup - 1) / LargestGroup;
    for (uint64_t group = 0; group < groups; ++group) {
        const uint64_t from = job.LagCount * group / groups, to = job.LagCount * (group + 1) / groups;
        rankGroup<FindTies>(job, from, to - from, ties);
    }
}

void rankSumsTarget(const RankJob &job, std::vector<RankTie> *ties)
{
    if (ties)
        rankAll<true>(job, ties);
    else
        rankAll<false>(job, ties);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(rankSumsTarget);

bool holds(const RankJob &job)
{
    const uint64_t lowest = job.LagCount ? *std::min_element(job.Cursors, job.Cursors + job.LagCount) : 0;
    uint64_t end = lowest;
    while (job.Stops[end] < INT64_MAX && job.Stops[end] <= job.Stops[end + 1]) ++end;
    bool all = std::all_of(job.Stops + end, job.Stops + end + RankJob::StopsBehind,
                           [](uint64_t stop) { return stop == INT64_MAX; }); // J2, J3
    all &= std::is_sorted(job.Starts, job.Starts + job.StartCount);
    all &= job.Starts[job.StartCount - 1] <= INT64_MAX; // J1
    for (uint64_t k = 0; k < job.LagCount; ++k) {
        const auto before = static_cast<int64_t>(job.Starts[0] - job.Lags[k]);
        const uint64_t cursor = job.Cursors[k];
        all &= job.Lags[k] <= INT64_MAX && cursor <= end;
        all &= cursor == lowest || static_cast<int64_t>(job.Stops[cursor - 1]) < before; // J4
    }
    return all;
}

void rankSums(const RankJob &job)
{
    assert(holds(job));
    HWY_DYNAMIC_DISPATCH(rankSumsTarget)(job, nullptr);
}

void rankSums(const RankJob &job, std::vector<RankTie> &ties)
{
    assert(holds(job));
    HWY_DYNAMIC_DISPATCH(rankSumsTarget)(job, &ties);
}

} // namespace Tessel
#endif
