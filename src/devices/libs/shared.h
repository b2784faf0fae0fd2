// The operations that some families share with one argument list, beside those that all have.
#pragma once

#include "devices/libs/common.h"

namespace Tessel {

// ZP, LM70 and CD90.
struct OperationsOfZpLm70Cd90 : CommonOperations
{
    using CommonOperations::CommonOperations;

    Operation<int32_t(int32_t idx, int32_t mode, int32_t refSource)> Initialize{*this, "Initialize"};
    Operation<int32_t(int32_t idx, char *text)> GetDebugInfo{*this, "GetDebugInfo"}; // 64 KiB
    Operation<int32_t(int32_t idx, const char *folder)> SaveDebugDump{*this, "SaveDebugDump"};
    Operation<int32_t(int32_t idx, uint32_t *records, int32_t *count)> ReadFiFo{*this, "ReadFiFo"};
    Operation<int32_t(int32_t idx, uint32_t *counts)> GetAllHistograms{*this, "GetAllHistograms"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetAllCountRates{*this,
                                                                                        "GetAllCountRates"};

    Operation<int32_t(int32_t idx, int32_t level, int32_t edge)> SetSyncEdgeTrg{*this, "SetSyncEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t on)> SetSyncChannelEnable{*this, "SetSyncChannelEnable"};
    Operation<int32_t(int32_t idx, int32_t on, int32_t ps)> SetSyncDeadTime{*this, "SetSyncDeadTime"};
    Operation<int32_t(int32_t idx, int32_t code)> SetInputHysteresis{*this, "SetInputHysteresis"};
    Operation<int32_t(int32_t idx, int32_t period)> SetTriggerOutput{*this, "SetTriggerOutput"};
    Operation<int32_t(int32_t idx, int32_t holdTimeMs)> SetOflCompression{*this, "SetOflCompression"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t edge)> SetInputEdgeTrg{
        *this, "SetInputEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t on, int32_t ps)> SetInputDeadTime{
        *this, "SetInputDeadTime"};
    Operation<int32_t(int32_t idx, int32_t on)> SetFilterTestMode{*this, "SetFilterTestMode"};
};

// ZP and CD90.
struct OperationsOfZpCd90 : OperationsOfZpLm70Cd90
{
    using OperationsOfZpLm70Cd90::OperationsOfZpLm70Cd90;

    Operation<int32_t(int32_t idx, int32_t *count)> GetNumOfModules{*this, "GetNumOfModules"};
    Operation<int32_t(int32_t idx, int32_t module, int32_t *modelCode, int32_t *versionCode)> GetModuleInfo{
        *this, "GetModuleInfo"};
    Operation<int32_t(int32_t idx, uint32_t *high, uint32_t *middle, uint32_t *low)> GetStartTime{
        *this, "GetStartTime"};

    Operation<int32_t(int32_t idx, int32_t on)> EnableMainEventFilter{*this, "EnableMainEventFilter"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t mask1, int32_t mask2)> SetMainEventFilterChannels{
        *this, "SetMainEventFilterChannels"};
    Operation<int32_t(int32_t idx, int32_t timeRange, int32_t matchCount, int32_t inverse)>
        SetMainEventFilterParams{*this, "SetMainEventFilterParams"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetMainFilteredRates{
        *this, "GetMainFilteredRates"};

    Operation<int32_t(int32_t idx, uint8_t *mac)> WRabbitGetMAC{*this, "WRabbitGetMAC"}; // 6 bytes
    Operation<int32_t(int32_t idx, uint8_t *mac)> WRabbitSetMAC{*this, "WRabbitSetMAC"}; // 6 bytes
    Operation<int32_t(int32_t idx, char *script)> WRabbitGetInitScript{*this, "WRabbitGetInitScript"}; // 64 KiB
    Operation<int32_t(int32_t idx, const char *script)> WRabbitSetInitScript{*this, "WRabbitSetInitScript"};
    Operation<int32_t(int32_t idx, char *names, int32_t *dTxs, int32_t *dRxs, int32_t *alphas)>
        WRabbitSetSFPData{*this, "WRabbitSetSFPData"}; // 80 bytes, three arrays of four
    Operation<int32_t(int32_t idx, int32_t on)> WRabbitInitLink{*this, "WRabbitInitLink"};
    Operation<int32_t(int32_t idx, int32_t first, int32_t second, int32_t third)> WRabbitSetMode{
        *this, "WRabbitSetMode"};
    Operation<int32_t(int32_t idx, uint32_t high, uint32_t low)> WRabbitSetTime{*this,
                                                                                "WRabbitSetTime"}; // seconds
    Operation<int32_t(int32_t idx, uint32_t *high, uint32_t *low, uint32_t *subSecond)> WRabbitGetTime{
        *this, "WRabbitGetTime"};
    Operation<int32_t(int32_t idx, int32_t *status)> WRabbitGetStatus{*this, "WRabbitGetStatus"};
    Operation<int32_t(int32_t idx, char *text, int32_t *count)> WRabbitGetTermOutput{
        *this, "WRabbitGetTermOutput"}; // 64 KiB
};

} // namespace Tessel
