// Whole quotients by a number that stays the same over a loop, a register at a time. Compiled anew for each
// instruction set of the file that includes it, from AVX2 on. No lock and no thread.
//
// n / d for n below 2^50, with x = (n + 1/2) / d: x is 1/(2d) or more away from any whole number, and 1/d as a
// double makes it wrong by less than 2^50/d x 2^-53. So the whole number nearest to x + 1 - 1/2 is the quotient
// and
// 1. It is at least 1, and beside 2^52 a double has no places for fractions: the lowest bits of the sum are
// that number.
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

    // By more than the limit the quotients are 0, as they are by it.
    explicit ExactDivision(uint64_t divisor)
        : ExactDivision(static_cast<double>(divisor < Limit ? divisor : Limit), 0x1p52 - 0.5)
    {
    }

    // Of dividends below the limit whose quotients are below 2^32; of others some number. The quotient is the
    // lower half of each lane.
    HWY_INLINE hn::Vec<hn::RebindToUnsigned<D>> operator()(hn::Vec<hn::RebindToUnsigned<D>> dividend) const
    {
        const hn::RebindToUnsigned<D> dWhole;
        // The bits of 2^52 + n as a double.
        const auto offset = hn::Or(hn::And(dividend, hn::Set(dWhole, (uint64_t{1} << 52) - 1)),
                                   hn::Set(dWhole, uint64_t{0x433} << 52));
        const auto next = hn::Sub(hn::BitCast(d, offset), start); // n + 1/2 + d, which is exact
        const auto quotient = hn::MulAdd(next, factor, hn::Set(d, 0x1p52 - 0.5));
        return hn::Sub(hn::BitCast(dWhole, quotient), hn::Set(dWhole, 1));
    }

private:
    ExactDivision(double divisor, double half)
        : factor(hn::Set(d, 1 / divisor)), start(hn::Set(d, half - divisor))
    {
    }

    static constexpr D d{};
    hn::Vec<D> factor, start;
};

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#endif
