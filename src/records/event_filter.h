// The main stage of an instrument's event filter, as it was last set.
#pragma once

#include <cstdint>

namespace Tessel {

struct MainFilter
{
    uint8_t FilterEnabled = 0;
    uint8_t FilterInverse = 0;
    int32_t FilterMatchCnt = 0;
    int32_t FilterTimeRange = 0; // ps
    // A bit a channel. Each mask that is set takes bits away, and none comes back: hosts know it so.
    uint32_t FilterMask1 = UINT32_MAX, FilterMask2 = UINT32_MAX;
};

} // namespace Tessel
