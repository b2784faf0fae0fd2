// Division by a number that stays the same over a whole loop, without a division in it.
#pragma once

#include <bit>
#include <cstdint>

namespace Tessel {

__extension__ using Wide = unsigned __int128;

// By a power of 2.
struct ShiftDivision
{
    int Shift;
    uint64_t operator()(uint64_t number) const { return number >> Shift; }
};

// n / d for numbers n below 2^63 and a divisor d above 1; beyond, some number.
//
// With s = ceil(log2 d) - 1 and k = 64 + s, Factor = ceil(2^k / d) is below 2^64, and e = Factor * d - 2^k is
// below d, so below 2^(s+1). Hence n * Factor / 2^k is too large by n * e / (d * 2^k) < 1 / d, too little to
// reach the next whole number.
struct ReciprocalDivision
{
    int Shift;
    uint64_t Factor;

    explicit ReciprocalDivision(uint64_t divisor)
        : Shift(std::bit_width(divisor - 1) - 1),
          Factor(static_cast<uint64_t>(((Wide{1} << (64 + Shift)) + divisor - 1) / divisor))
    {
    }
    uint64_t operator()(uint64_t number) const
    {
        return static_cast<uint64_t>(Wide{number} * Factor >> 64) >> Shift;
    }
};

// By any number above 0; what the reciprocal is too coarse for takes the processor's division.
struct AnyDivision
{
    uint64_t Divisor;
    ReciprocalDivision Reciprocal;

    explicit AnyDivision(uint64_t divisor) : Divisor(divisor), Reciprocal(divisor > 1 ? divisor : 2) {}
    uint64_t operator()(uint64_t number) const
    {
        return number >> 63 != 0 || Divisor == 1 ? number / Divisor : Reciprocal(number);
    }
};

// Calls `work` with the division by this number, which is above 0.
template <class Work>
auto withDivision(uint64_t divisor, Work work)
{
    if (std::has_single_bit(divisor)) return work(ShiftDivision{std::countr_zero(divisor)});
    return work(ReciprocalDivision(divisor));
}

} // namespace Tessel
