// A register of times at a time, each less the one before it: a step back leaves its sign.
#include "stream/order.h"

#include <cstddef>

// This file once for each instruction set; what comes after foreach_target.h is compiled for each.
// clang-format off
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "stream/order_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// From the second time on. `kept`: the bits that count.
bool hasStepBackTarget(const uint64_t *times, uint64_t count, uint64_t kept)
{
    constexpr hn::ScalableTag<uint64_t> lanes;
    constexpr hn::RebindToSigned<decltype(lanes)> signedLanes;
    constexpr size_t size = hn::MaxLanes(hn::ScalableTag<uint64_t>());
    const auto mask = hn::Set(lanes, kept);
    const auto step = [&](size_t at) {
        return hn::Sub(hn::And(hn::LoadU(lanes, times + at), mask),
                       hn::And(hn::LoadU(lanes, times + at - 1), mask));
    };
    auto one = hn::Zero(lanes), other = one;
    uint64_t at = 1;
    for (; at + 2 * size <= count; at += 2 * size) {
        one = hn::Or(one, step(at));
        other = hn::Or(other, step(at + size));
    }
    const auto signs = hn::BitCast(signedLanes, hn::Or(one, other));
    bool isBack = !hn::AllFalse(signedLanes, hn::Lt(signs, hn::Zero(signedLanes)));
    for (; at < count; ++at) isBack |= static_cast<int64_t>((times[at] & kept) - (times[at - 1] & kept)) < 0;
    return isBack;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessel {

HWY_EXPORT(hasStepBackTarget);

bool hasStepBack(const uint64_t *times, uint64_t count, uint64_t before, int shift)
{
    if (count == 0) return false;
    if (static_cast<int64_t>((times[0] >> shift) - before) < 0) return true;
    return HWY_DYNAMIC_DISPATCH(hasStepBackTarget)(times, count, ~uint64_t{0} << shift);
}

} // namespace Tessel
#endif
