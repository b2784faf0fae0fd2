// Bin of a time: division by a width that stays the same over a whole loop, without a division in it.
#pragma once

#include <bit>
#include <cstdint>

namespace Tessel {

__extension__ using Wide = unsigned __int128;

// The width is a power of 2.
struct ShiftDivision
{
    int Shift;
    uint64_t operator()(uint64_t distance) const { return distance >> Shift; }
};

// distance / width for a width w that is no power of 2 and distances below 2^63. With s = floor(log2 w) and
// k = 64 + s, Factor = floor(2^k / w) + 1 is below 2^64 and e = Factor * w - 2^k is at most w, so below
// 2^(s+1). Hence distance * Factor / 2^k is too large by distance * e / (w * 2^k) < 1 / w, too little to reach
// the next bin.
struct ReciprocalDivision
{
    int Shift;
    uint64_t Factor;

    explicit ReciprocalDivision(uint64_t width)
        : Shift(std::bit_width(width) - 1), Factor(static_cast<uint64_t>((Wide{1} << (64 + Shift)) / width) + 1)
    {
    }
    uint64_t operator()(uint64_t distance) const
    {
        return static_cast<uint64_t>(Wide{distance} * Factor >> 64) >> Shift;
    }
};

} // namespace Tessel
