// A register of times at a time; each is in the span if its distance from the span's start is below its length.
#include "stream/time_span.h"

#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stream/time_span_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

uint64_t leadingWithinTarget(const uint64_t *times, uint64_t count, uint64_t from, uint64_t length)
{
    constexpr hn::ScalableTag<uint64_t> lanes;
    constexpr size_t registers = 4, step = registers * hn::MaxLanes(hn::ScalableTag<uint64_t>());
    const auto start = hn::Set(lanes, from), limit = hn::Set(lanes, length);
    const auto isWithin = [&](size_t at) {
        return hn::Lt(hn::Sub(hn::LoadU(lanes, times + at), start), limit);
    };
    uint64_t at = 0;
    for (constexpr size_t one = step / registers; at + step <= count; at += step)
        if (!hn::AllTrue(lanes, hn::And(hn::And(isWithin(at), isWithin(at + one)),
                                        hn::And(isWithin(at + 2 * one), isWithin(at + 3 * one)))))
            break;
    while (at < count && times[at] - from < length) ++at;
    return at;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(leadingWithinTarget);

uint64_t leadingWithin(const uint64_t *times, uint64_t count, uint64_t from, uint64_t to)
{
    if (to <= from || count == 0 || times[0] - from >= to - from) return 0;
    return HWY_DYNAMIC_DISPATCH(leadingWithinTarget)(times, count, from, to - from);
}

} // namespace Tessel
#endif
