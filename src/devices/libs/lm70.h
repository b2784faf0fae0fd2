// The library of the Lumora 70 family: what it has beside the shared operations.
#pragma once

#include "devices/libs/shared.h"

namespace Tessel {

struct LM70Library : OperationsOfZpLm70Cd90
{
    constexpr LM70Library() : OperationsOfZpLm70Cd90("LM70Lib.so", "LM70_") {}

    Operation<int32_t(int32_t idx, int32_t mode)> SetSyncTrgMode{*this, "SetSyncTrgMode"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t mode)> SetInputTrgMode{*this, "SetInputTrgMode"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};

    Operation<int32_t(int32_t idx, int32_t on)> EnableEventFilter{*this, "EnableEventFilter"};
    Operation<int32_t(int32_t idx, int32_t mask1, int32_t mask2)> SetEventFilterChannels{
        *this, "SetEventFilterChannels"};
    Operation<int32_t(int32_t idx, int32_t timeRange, int32_t matchCount, int32_t inverse)>
        SetEventFilterParams{*this, "SetEventFilterParams"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetFilterOutputRates{
        *this, "GetFilterOutputRates"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetFilterInputRates{
        *this, "GetFilterInputRates"};
};

extern LM70Library lm70;

} // namespace Tessel
