// The input dead times of the SV40 family in ps; the position is the code that the instrument takes.
#pragma once

#include <array>
#include <cstdint>

namespace Tessel {

inline constexpr std::array<int32_t, 8> DeadTimeTable = {24000,  44000,  66000,  88000,
                                                         112000, 135000, 160000, 180000};

} // namespace Tessel
