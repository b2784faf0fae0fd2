// Whole quotients by a number that stays the same over a loop, a register at a time. Compiled anew for each
// instruction set of the file that includes it, from AVX2 on. No lock and no thread.
//
// n / d for n below 2^50 is the whole part of (n + 1/2) x (1/d) in doubles: n + 1/2 is exact, and the true
// value is 1/(2d) or more away from any whole number, while the two roundings are off by less than n/d x 2^-52
// < 1/(4d).
#if defined(TESSEL_EXACT_DIVISION_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef TESSEL_EXACT_DIVISION_INL_H
#undef TESSEL_EXACT_DIVISION_INL_H
#else
#define TESSEL_EXACT_DIVISION_INL_H
#endif

#include <hwy/highway.h>

#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2

namespace hn = hwy::HWY_NAMESPACE;

// D: a tag of doubles.
template <class D>
class ExactDivision
{
public:
    static constexpr uint64_t Limit = uint64_t{1} << 50; // of a dividend

    explicit ExactDivision(uint64_t divisor) : factor(hn::Set(d, 1 / static_cast<double>(divisor))) {}

    // Of dividends below the limit whose quotients are below 2^31; of others some number.
    HWY_INLINE auto operator()(hn::Vec<hn::RebindToUnsigned<D>> dividend) const
    {
        const hn::RebindToUnsigned<D> dWhole;
        const hn::Rebind<int32_t, D> dQuotient;
        // The bits of 2^52 + n as a double.
        const auto offset = hn::Or(hn::And(dividend, hn::Set(dWhole, (uint64_t{1} << 52) - 1)),
                                   hn::Set(dWhole, uint64_t{0x433} << 52));
        const auto half = hn::Sub(hn::BitCast(d, offset), hn::Set(d, 0x1p52 - 0.5));
        const auto quotient = hn::DemoteTo(dQuotient, hn::Mul(half, factor));
        return hn::BitCast(hn::RebindToUnsigned<decltype(dQuotient)>(), quotient);
    }

private:
    static constexpr D d{};
    hn::Vec<D> factor;
};

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#endif
