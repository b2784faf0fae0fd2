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

// Cut to whole picoseconds, from 0 to 2^63 - 1.
uint64_t lagPs(double ps);

} // namespace Tessel
