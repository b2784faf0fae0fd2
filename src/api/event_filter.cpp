#include "devices/event_filter.h"

#include "api/exports.h"

using namespace Tessel;

bool enableMainEventFilter(const char16_t *id, uint8_t enable)
{
    return guarded("enableMainEventFilter", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API enableMainEventFilter {} @{}", enable, target->device.ID);
        return EnableMainEventFilter(target->device, target->context.Filter, enable);
    });
}

bool setMainEventFilterChannels(const char16_t *id, int32_t row, uint32_t mask1, uint32_t mask2)
{
    return guarded("setMainEventFilterChannels", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setMainEventFilterChannels {} {} {} @{}", row, mask1, mask2,
                   target->device.ID);
        return SetMainEventFilterChannels(target->device, target->context.Filter, row, {mask1, mask2});
    });
}

bool setMainEventFilterParams(const char16_t *id, int32_t timeRange, int32_t matchCount, uint8_t inverse)
{
    return guarded("setMainEventFilterParams", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setMainEventFilterParams {} {} {} @{}", timeRange, matchCount,
                   inverse, target->device.ID);
        return SetMainEventFilterParams(target->device, target->context.Filter,
                                        {timeRange, matchCount, inverse});
    });
}

bool enableRowEventFilter(const char16_t *id, int32_t row, uint8_t enable)
{
    return guarded("enableRowEventFilter", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API enableRowEventFilter {} {} @{}", row, enable, target->device.ID);
        return EnableRowEventFilter(target->device, row, enable);
    });
}

bool setRowEventFilter(const char16_t *id, int32_t row, int32_t timeRange, int32_t matchCount, uint8_t inverse,
                       uint32_t mask1, uint32_t mask2)
{
    return guarded("setRowEventFilter", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setRowEventFilter {} {} {} {} {} {} @{}", row, timeRange,
                   matchCount, inverse, mask1, mask2, target->device.ID);
        return SetRowEventFilter(target->device, row, {timeRange, matchCount, inverse}, {mask1, mask2});
    });
}

bool setFilterTestMode(const char16_t *id, uint8_t testMode)
{
    return guarded("setFilterTestMode", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setFilterTestMode {} @{}", testMode, target->device.ID);
        return SetFilterTestMode(target->device, testMode);
    });
}

bool getMainFilteredRates(const char16_t *id, int32_t *syncRate, int32_t *rates)
{
    return guarded("getMainFilteredRates", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getMainFilteredRates {} {} @{}", fmt::ptr(syncRate),
                   fmt::ptr(rates), target->device.ID);
        return GetMainFilteredRates(target->device, syncRate, rates);
    });
}

bool getRowFilteredRates(const char16_t *id, int32_t *syncRate, int32_t *rates)
{
    return guarded("getRowFilteredRates", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getRowFilteredRates {} {} @{}", fmt::ptr(syncRate),
                   fmt::ptr(rates), target->device.ID);
        return GetRowFilteredRates(target->device, syncRate, rates);
    });
}
