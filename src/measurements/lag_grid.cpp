#include "measurements/lag_grid.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessel {

uint64_t cutPs(double ps)
{
    constexpr double limit = 9223372036854775808.0;
    if (!(ps > 0)) return 0;
    return ps < limit ? static_cast<uint64_t>(ps) : std::numeric_limits<int64_t>::max();
}

uint64_t roundedPs(double ps)
{
    return cutPs(std::round(ps));
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
        grid.Centers.push_back(cutPs(width * 0.5 + from));
        grid.Widths.push_back(cutPs(width));
        // A step that is lost in rounding, or no number, would go on for ever.
        if (edge >= window || !(end + step > end)) return grid;
        edge = cutPs(from + width);
    }
}

} // namespace Tessel
