// Doubles that a host or a file gives, as whole numbers: what is no number becomes 0, and what lies beyond an
// end of the type becomes that end.
#pragma once

#include <cmath>
#include <limits>

namespace Tessel {

// Cut towards zero.
template <class Whole>
Whole truncated(double value)
{
    constexpr Whole least = std::numeric_limits<Whole>::min(), most = std::numeric_limits<Whole>::max();
    // The end itself is a power of 2, so it is a double; the largest number may not be.
    constexpr double end = 2.0 * static_cast<double>(most / 2 + 1);
    if (value >= end) return most;
    if (value < static_cast<double>(least)) return least;
    return std::isnan(value) ? Whole{0} : static_cast<Whole>(value);
}

// Half away from zero.
template <class Whole>
Whole nearest(double value)
{
    return truncated<Whole>(std::round(value));
}

} // namespace Tessel
