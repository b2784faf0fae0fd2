#include "measurements/lag_grid.h"

#include "stream/rounding.h"

#include <algorithm>
#include <cmath>

namespace Tessel {

uint64_t lagPs(double ps)
{
    return static_cast<uint64_t>(std::max(truncated<int64_t>(ps), int64_t{0}));
}

LagGrid lagGrid(uint64_t minLag, uint64_t window, uint64_t steps)
{
    const double start = std::log10(static_cast<double>(minLag));
    const double step =
        (std::log10(static_cast<double>(window)) - start) / static_cast<double>(std::min(steps, mostLagSteps));
    LagGrid grid;
    uint64_t edge = minLag;
    for (double end = start + step;; end += step) {
        const double from = static_cast<double>(edge), width = std::pow(10.0, end) - from;
        grid.Edges.push_back(edge);
        grid.Centers.push_back(lagPs(width * 0.5 + from));
        grid.Widths.push_back(lagPs(width));
        // With a step that rounding loses, or that is no number, this would never end.
        if (edge >= window || !(end + step > end)) return grid;
        edge = lagPs(from + width);
    }
}

} // namespace Tessel
