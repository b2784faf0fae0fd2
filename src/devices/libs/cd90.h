// The library of the Cordalis 90 family: what it has beside the common operations.
#pragma once

#include "devices/libs/common.h"

namespace Tessel {

struct CD90Library : CommonOperations
{
    constexpr CD90Library() : CommonOperations("CD90Lib.so", "CD90_") {}

    Operation<int32_t(int32_t idx, int32_t mode, int32_t refSource)> Initialize{*this, "Initialize"};
    Operation<int32_t(int32_t idx, int32_t *bits)> GetSyncFeatures{*this, "GetSyncFeatures"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t *bits)> GetInputFeatures{*this, "GetInputFeatures"};
    Operation<int32_t(int32_t idx, int32_t *count)> GetNumOfModules{*this, "GetNumOfModules"};
    Operation<int32_t(int32_t idx, int32_t module, int32_t *modelCode, int32_t *versionCode)> GetModuleInfo{
        *this, "GetModuleInfo"};
    Operation<int32_t(int32_t idx, char *text)> GetDebugInfo{*this, "GetDebugInfo"}; // 64 KiB
    Operation<int32_t(int32_t idx, const char *folder)> SaveDebugDump{*this, "SaveDebugDump"};

    Operation<int32_t(int32_t idx, uint32_t *records, int32_t *count)> ReadFiFo{*this, "ReadFiFo"};
    Operation<int32_t(int32_t idx, uint32_t *counts)> GetAllHistograms{*this, "GetAllHistograms"};
    Operation<int32_t(int32_t idx, uint32_t *high, uint32_t *middle, uint32_t *low)> GetStartTime{
        *this, "GetStartTime"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetAllCountRates{*this,
                                                                                        "GetAllCountRates"};

    Operation<int32_t(int32_t idx, int32_t mode)> SetSyncTrgMode{*this, "SetSyncTrgMode"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t edge)> SetSyncEdgeTrg{*this, "SetSyncEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t on)> SetSyncChannelEnable{*this, "SetSyncChannelEnable"};
    Operation<int32_t(int32_t idx, int32_t on, int32_t ps)> SetSyncDeadTime{*this, "SetSyncDeadTime"};
    Operation<int32_t(int32_t idx, int32_t code)> SetInputHysteresis{*this, "SetInputHysteresis"};
    Operation<int32_t(int32_t idx, int32_t period)> SetTriggerOutput{*this, "SetTriggerOutput"};
    Operation<int32_t(int32_t idx, int32_t level)> SetLEDBrightness{*this, "SetLEDBrightness"};
    Operation<int32_t(int32_t idx, int32_t holdTimeMs)> SetOflCompression{*this, "SetOflCompression"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t mode)> SetInputTrgMode{*this, "SetInputTrgMode"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t edge)> SetInputEdgeTrg{
        *this, "SetInputEdgeTrg"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t on, int32_t ps)> SetInputDeadTime{
        *this, "SetInputDeadTime"};

    Operation<int32_t(int32_t idx, int32_t on)> SetFilterTestMode{*this, "SetFilterTestMode"};
    Operation<int32_t(int32_t idx, int32_t on)> EnableMainEventFilter{*this, "EnableMainEventFilter"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t mask1, int32_t mask2)> SetMainEventFilterChannels{
        *this, "SetMainEventFilterChannels"};
    Operation<int32_t(int32_t idx, int32_t timeRange, int32_t matchCount, int32_t inverse)>
        SetMainEventFilterParams{*this, "SetMainEventFilterParams"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t on)> EnableGroupEventFilter{*this,
                                                                                    "EnableGroupEventFilter"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t timeRange, int32_t matchCount, int32_t inverse,
                      int32_t mask1, int32_t mask2)>
        SetGroupEventFilter{*this, "SetGroupEventFilter"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetMainFilteredRates{
        *this, "GetMainFilteredRates"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetGroupFilteredRates{
        *this, "GetGroupFilteredRates"};

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

extern CD90Library cd90;

} // namespace Tessel
