// How the arguments of a host become those of a stage.
#include "manipulators/stages.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessel {

std::vector<uint8_t> channelBytes(std::span<const int32_t> channels)
{
    std::vector<uint8_t> bytes;
    for (int32_t channel : channels) bytes.push_back(static_cast<uint8_t>(channel));
    return bytes;
}

int32_t nearestInt32(double value)
{
    using Range = std::numeric_limits<int32_t>;
    if (std::isnan(value)) return 0;
    return static_cast<int32_t>(std::clamp<double>(std::round(value), Range::min(), Range::max()));
}

uint64_t nearestUint64(double value)
{
    if (!(value > 0)) return 0;
    constexpr double limit = 18446744073709551616.0;
    const double rounded = std::round(value);
    return rounded < limit ? static_cast<uint64_t>(rounded) : std::numeric_limits<uint64_t>::max();
}

} // namespace Tessel
