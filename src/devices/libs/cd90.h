// The library of the Cordalis 90 family: what it has beside the shared operations.
#pragma once

#include "devices/libs/shared.h"

namespace Tessel {

struct CD90Library : OperationsOfZpCd90
{
    constexpr CD90Library() : OperationsOfZpCd90("CD90Lib.so", "CD90_") {}

    Operation<int32_t(int32_t idx, int32_t *bits)> GetSyncFeatures{*this, "GetSyncFeatures"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t *bits)> GetInputFeatures{*this, "GetInputFeatures"};

    Operation<int32_t(int32_t idx, int32_t mode)> SetSyncTrgMode{*this, "SetSyncTrgMode"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t level)> SetLEDBrightness{*this, "SetLEDBrightness"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t mode)> SetInputTrgMode{*this, "SetInputTrgMode"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};

    Operation<int32_t(int32_t idx, int32_t row, int32_t on)> EnableGroupEventFilter{*this,
                                                                                    "EnableGroupEventFilter"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t timeRange, int32_t matchCount, int32_t inverse,
                      int32_t mask1, int32_t mask2)>
        SetGroupEventFilter{*this, "SetGroupEventFilter"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetGroupFilteredRates{
        *this, "GetGroupFilteredRates"};
};

extern CD90Library cd90;

} // namespace Tessel
