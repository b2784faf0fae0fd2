// The library of the Sarvex 40 family: what it has beside the common operations.
#pragma once

#include "devices/libs/common.h"

namespace Tessel {

struct SV40Library : CommonOperations
{
    constexpr SV40Library() : CommonOperations("sv40lib64.so", "SV40_") {}

    Operation<int32_t(int32_t idx, int32_t mode)> Initialize{*this, "Initialize"};
    Operation<int32_t(int32_t idx, char *text)> GetHardwareDebugInfo{*this, "GetHardwareDebugInfo"}; // 64 KiB

    Operation<int32_t(int32_t idx, uint32_t *records, int32_t capacity, int32_t *count)> ReadFiFo{*this,
                                                                                                  "ReadFiFo"};
    Operation<int32_t(int32_t idx, uint32_t *counts, int32_t channel, int32_t clear)> GetHistogram{
        *this, "GetHistogram"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t *rate)> GetCountRate{*this, "GetCountRate"};

    Operation<int32_t(int32_t idx, int32_t level, int32_t edge)> SetSyncEdgeTrg{*this, "SetSyncEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t mode)> SetTimingMode{*this, "SetTimingMode"};
    Operation<int32_t(int32_t idx, int32_t period)> SetTriggerOutput{*this, "SetTriggerOutput"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t edge)> SetInputEdgeTrg{
        *this, "SetInputEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t code)> SetInputDeadTime{
        *this, "SetInputDeadTime"}; // of DeadTimeTable
};

extern SV40Library sv40;

} // namespace Tessel
