// The logarithmic lag grid of FCS and FFCS.
#pragma once

#include <cstdint>
#include <vector>

namespace Tessel {

// Lag bins in ps, of one length. Edges ascend; a bin begins at its edge and ends about where the next begins.
struct LagGrid
{
    std::vector<uint64_t> Edges, Centers, Widths;
};

inline constexpr uint64_t mostLagSteps = 1'000'000;

// `steps` bins (at most mostLagSteps are made) of one logarithmic width from `minLag` to `window`, and one that
// begins there. A grid that can't advance ends: one lag where window <= minLag, minLag is 0 or steps is 0.
LagGrid lagGrid(uint64_t minLag, uint64_t window, uint64_t steps);

// Whole picoseconds, cut or rounded: 0 for what is negative or no number, 2^63 - 1 for what is larger.
uint64_t cutPs(double ps);
uint64_t roundedPs(double ps);

} // namespace Tessel
