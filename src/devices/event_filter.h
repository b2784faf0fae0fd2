// The event filter in the instrument, which thins the stream before it reaches the FIFO: a row filter for each
// group of channels, and the main filter after them. CD and SV40 have none; LM70 has the main filter alone.
//
// On a recorded file true, on a remote device false, without effect; without the feature false. Times in ps.
#pragma once

#include "records/context.h"
#include "records/device.h"

#include <cstdint>
#include <span>

namespace Tessel {

struct FilterParams
{
    int32_t TimeRange = 0, MatchCount = 1;
    uint8_t Inverse = 0;
};
struct FilterMasks
{
    uint32_t First = 0, Second = 0; // a bit a channel of the row
};

// Rows beyond 0 to 7 count as the nearest.
bool EnableMainEventFilter(Device &device, MainFilter &filter, uint8_t enable);
bool SetMainEventFilterChannels(Device &device, MainFilter &filter, int32_t row, FilterMasks masks);
bool SetMainEventFilterParams(Device &device, MainFilter &filter, FilterParams params);
bool EnableRowEventFilter(Device &device, int32_t row, uint8_t enable);
bool SetRowEventFilter(Device &device, int32_t row, FilterParams params, FilterMasks masks);
bool SetFilterTestMode(Device &device, uint8_t testMode);

// What passes the filter, in counts per second. `rates`: one for each input. Null: not wanted.
bool GetMainFilteredRates(Device &device, int32_t *syncRate, int32_t *rates);
bool GetRowFilteredRates(Device &device, int32_t *syncRate, int32_t *rates);

} // namespace Tessel
