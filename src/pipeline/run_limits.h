// Limits of a run.
#pragma once

#include <cstdint>

namespace Tessel {

inline constexpr int32_t longestAcquisitionMs = 360'000'000; // 100 hours; an endless run is capped here

} // namespace Tessel
