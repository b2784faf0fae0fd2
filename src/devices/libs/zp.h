// The library of the Zephyrion family: what it has beside the shared operations.
#pragma once

#include "devices/libs/shared.h"

namespace Tessel {

struct ZPLibrary : OperationsOfZpCd90
{
    constexpr ZPLibrary() : OperationsOfZpCd90("ZPLib64.so", "ZP_") {}

    Operation<int32_t(int32_t idx, int32_t row, int32_t on)> EnableRowEventFilter{*this,
                                                                                  "EnableRowEventFilter"};
    Operation<int32_t(int32_t idx, int32_t row, int32_t timeRange, int32_t matchCount, int32_t inverse,
                      int32_t mask1, int32_t mask2)>
        SetRowEventFilter{*this, "SetRowEventFilter"};
    Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> GetRowFilteredRates{
        *this, "GetRowFilteredRates"};
};

extern ZPLibrary zp;

} // namespace Tessel
