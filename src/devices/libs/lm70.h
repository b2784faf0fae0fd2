// The library of the Lumora 70 family: what it has beside the common operations.
#pragma once

#include "devices/libs/common.h"

namespace Tessel {

struct LM70Library : CommonOperations
{
    constexpr LM70Library() : CommonOperations("LM70Lib.so", "LM70_") {}

    Operation<int32_t(int32_t idx, int32_t mode, int32_t refSource)> Initialize{*this, "Initialize"};
    Operation<int32_t(int32_t idx, char *text)> GetDebugInfo{*this, "GetDebugInfo"}; // 64 KiB
    Operation<int32_t(int32_t idx, const char *folder)> SaveDebugDump{*this, "SaveDebugDump"};

    Operation<int32_t(int32_t idx, uint32_t *records, int32_t *count)> ReadFiFo{*this, "ReadFiFo"};
    Operation<int32_t(int32_t idx, uint32_t *counts)> GetAllHistograms{*this, "GetAllHistograms"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetAllCountRates{*this,
                                                                                        "GetAllCountRates"};

    Operation<int32_t(int32_t idx, int32_t mode)> SetSyncTrgMode{*this, "SetSyncTrgMode"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t edge)> SetSyncEdgeTrg{*this, "SetSyncEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t on)> SetSyncChannelEnable{*this, "SetSyncChannelEnable"};
    Operation<int32_t(int32_t idx, int32_t on, int32_t ps)> SetSyncDeadTime{*this, "SetSyncDeadTime"};
    Operation<int32_t(int32_t idx, int32_t code)> SetInputHysteresis{*this, "SetInputHysteresis"};
    Operation<int32_t(int32_t idx, int32_t period)> SetTriggerOutput{*this, "SetTriggerOutput"};
    Operation<int32_t(int32_t idx, int32_t holdTimeMs)> SetOflCompression{*this, "SetOflCompression"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t mode)> SetInputTrgMode{*this, "SetInputTrgMode"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t edge)> SetInputEdgeTrg{
        *this, "SetInputEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t on, int32_t ps)> SetInputDeadTime{
        *this, "SetInputDeadTime"};

    Operation<int32_t(int32_t idx, int32_t on)> SetFilterTestMode{*this, "SetFilterTestMode"};
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
