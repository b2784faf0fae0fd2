#include "measurements/age_bins.h"

#include <algorithm>

namespace Tessel {

namespace {

constexpr unsigned mostFineBits = 14; // a table of some MiB at most

// Some cells for a bin, so that few hold more than one lag.
unsigned fineBits(const std::vector<uint64_t> &lags)
{
    const auto octaves = static_cast<uint64_t>(std::bit_width(lags.back()) - std::bit_width(lags.front()) + 1);
    return std::min(static_cast<unsigned>(std::bit_width(4 * lags.size() / octaves)), mostFineBits);
}

// The least age of a cell.
uint64_t leastAge(const AgeBins &bins, uint64_t cell)
{
    const uint64_t power = cell >> bins.FineBits, shift = power > 0 ? power - 1 : 0;
    return (cell - (shift << bins.FineBits)) << shift;
}

} // namespace

AgeBins ageBins(const std::vector<uint64_t> &lags)
{
    AgeBins bins;
    if (lags.size() < 2 || lags.front() == 0) return bins;
    bins.FineBits = fineBits(lags);
    bins.First.resize(cellOf(bins, lags.back()) + 1);
    uint64_t bin = 0;
    for (uint64_t cell = 0; cell < bins.First.size(); ++cell) {
        while (bin + 2 < lags.size() && lags[bin + 1] < leastAge(bins, cell)) ++bin;
        bins.First[cell] = static_cast<uint32_t>(bin);
    }
    return bins;
}

} // namespace Tessel
