// Ranks by comparing the stops behind a cursor, a register of them at a time; below AVX2 four by four.
//
// How far a cursor moves is as random as the light, so the loop doesn't branch on it: mostly one register holds
// all stops that it passes. Many lags are worked on at once, for each cursor waits for its own last comparison.
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

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

// How many of `Width` ascending stops are before start - lag.
struct StopsBefore
{
    static constexpr hn::ScalableTag<int64_t> d{};
    static constexpr size_t Width = hn::MaxLanes(hn::ScalableTag<int64_t>());

    static HWY_INLINE size_t of(const int64_t *stops, int64_t before)
    {
        return hn::CountTrue(d, hn::Lt(hn::LoadU(d, stops), hn::Set(d, before)));
    }
};

#else

struct StopsBefore
{
    static constexpr size_t Width = 4;

    static HWY_INLINE size_t of(const int64_t *stops, int64_t before)
    {
        return size_t{stops[0] < before} + size_t{stops[1] < before} + size_t{stops[2] < before} +
               size_t{stops[3] < before};
    }
};

#endif

static_assert(StopsBefore::Width <= RankJob::StopsBehind);

constexpr uint64_t LargestGroup = 16;

// The lags from `from` on, `size` of them. After each start ranks[k] is its rank at lag k. A cursor never goes
// beyond the stops, since no fence is before a start.
template <bool FindTies>
void rankGroup(const RankJob &job, uint64_t from, uint64_t size, std::vector<RankTie> *ties)
{
    const auto *starts = reinterpret_cast<const int64_t *>(job.Starts);
    const auto *stops = reinterpret_cast<const int64_t *>(job.Stops);
    const uint64_t startCount = job.StartCount;
    int64_t lags[LargestGroup];
    uint64_t ranks[LargestGroup], sums[LargestGroup] = {};
    std::copy_n(job.Lags + from, size, lags);
    std::copy_n(job.Cursors + from, size, ranks);
    for (uint64_t i = 0; i < startCount; ++i)
        for (uint64_t k = 0; k < size; ++k) {
            const int64_t before = starts[i] - lags[k];
            const uint64_t rankBefore = ranks[k];
            size_t passed = StopsBefore::of(stops + rankBefore, before);
            uint64_t rank = rankBefore + passed;
            while (HWY_UNLIKELY(passed == StopsBefore::Width)) {
                passed = StopsBefore::of(stops + rank, before);
                rank += passed;
            }
            ranks[k] = rank;
            sums[k] += rank;
            if (FindTies && HWY_UNLIKELY(stops[rank] == before))
                ties->push_back({from + k, i, rankBefore, rank});
        }
    std::copy_n(ranks, size, job.Cursors + from);
    for (uint64_t k = 0; k < size; ++k) job.Sums[from + k] += sums[k];
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
