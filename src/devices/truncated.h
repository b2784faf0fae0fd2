// Numbers that a host or a file gives as doubles, as whole numbers.
#pragma once

#include <cstdint>
#include <limits>

namespace Tessel {

// Cut to an integer. Saturates, and gives 0 for what is negative or no number.
inline uint64_t truncated(double value)
{
    if (!(value > 0)) return 0;
    constexpr double limit = 18446744073709551616.0;
    return value < limit ? static_cast<uint64_t>(value) : std::numeric_limits<uint64_t>::max();
}

} // namespace Tessel
