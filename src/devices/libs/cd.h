// The library of the Cordalis family: what it has beside the common operations.
#pragma once

#include "devices/libs/common.h"

namespace Tessel {

struct CDLibrary : CommonOperations
{
    constexpr CDLibrary() : CommonOperations("CDLib64.so", "CD_") {}

    Operation<int32_t(int32_t idx, int32_t mode, int32_t refSource)> Initialize{*this, "Initialize"};
    Operation<int32_t(int32_t idx)> Calibrate{*this, "Calibrate"};
    Operation<int32_t(int32_t idx, int32_t *count)> GetNumOfModules{*this, "GetNumOfModules"};
    Operation<int32_t(int32_t idx, int32_t module, int32_t *modelCode, int32_t *versionCode)> GetModuleInfo{
        *this, "GetModuleInfo"};
    Operation<int32_t(int32_t idx, char *text)> GetHardwareDebugInfo{*this, "GetHardwareDebugInfo"}; // 64 KiB

    Operation<int32_t(int32_t idx, uint32_t *records, int32_t capacity, int32_t *count)> ReadFiFo{*this,
                                                                                                  "ReadFiFo"};
    Operation<int32_t(int32_t idx, uint32_t *counts, int32_t channel, int32_t clear)> GetHistogram{
        *this, "GetHistogram"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t *rate)> GetCountRate{*this, "GetCountRate"};

    Operation<int32_t(int32_t idx, int32_t level, int32_t zeroCross)> SetSyncCFD{*this, "SetSyncCFD"};
    Operation<int32_t(int32_t idx, int32_t channel, int32_t level, int32_t zeroCross)> SetInputCFD{
        *this, "SetInputCFD"};
};

extern CDLibrary cd;

} // namespace Tessel
