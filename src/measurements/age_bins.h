// Which lag bin an age falls in, found in a few steps however many bins there are.
//
// Ages are sorted into cells of about one relative width, as lag bins are: a cell is the power of two and some
// bits below it. The bin of an age is that of its cell's least age, or one of the next few.
#pragma once

#include <bit>
#include <cstdint>
#include <vector>

namespace Tessel {

struct AgeBins
{
    std::vector<uint32_t> First; // for each cell the bin of its least age; empty: there are no bins to look for
    unsigned FineBits = 0;       // a power of two has 2^FineBits cells
};

// `lags`: ascending; bin k holds the ages beyond lags[k] and not beyond lags[k + 1]. None are made if the first
// lag is 0.
AgeBins ageBins(const std::vector<uint64_t> &lags);

inline uint64_t cellOf(const AgeBins &bins, uint64_t age)
{
    const unsigned width = static_cast<unsigned>(std::bit_width(age | 1)), fine = bins.FineBits + 1;
    const unsigned shift = width > fine ? width - fine : 0;
    return (uint64_t{shift} << bins.FineBits) + (age >> shift);
}

// Needs an age beyond the first lag and not beyond the last.
inline uint64_t binOf(const AgeBins &bins, const uint64_t *lags, uint64_t age)
{
    uint64_t bin = bins.First[cellOf(bins, age)];
    bin += lags[bin + 1] < age; // as random as the light: not a branch
    while (lags[bin + 1] < age) ++bin;
    return bin;
}

} // namespace Tessel
