#include "devices/event_filter.h"

#include "devices/call.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "devices/limits.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <span>

namespace Tessel {

namespace {

using FamilyRanges = std::array<Range, familyCount>; // ZP, CD, SV40, LM70, CD90

constexpr Range none{};
constexpr FamilyRanges mainTimeRanges = {{{0, 160000}, none, none, {0, 160000}, {0, 32000}}};
constexpr FamilyRanges mainMatchCounts = {{{1, 6}, none, none, {1, 6}, {1, 6}}};
constexpr FamilyRanges rowTimeRanges = {{{0, 160000}, none, none, none, {0, 32000}}};
constexpr FamilyRanges rowMatchCounts = {{{1, 6}, none, none, none, {1, 6}}};

constexpr uint32_t mainMask = 0x1FF, rowMask = 0xFF;

bool hasFilter(const Device &device)
{
    return (device.Features & Feature::EvntFilt) != 0;
}

Range rangeOf(const Device &device, const FamilyRanges &ranges)
{
    const auto family = static_cast<size_t>(device.LibType); // a negative one is very large
    return family < familyCount ? ranges[family] : none;
}

int32_t rowOf(int32_t row)
{
    return std::clamp(row, 0, 7);
}

struct Masks
{
    int32_t First, Second;
};

Masks cut(FilterMasks masks, uint32_t allowed)
{
    return {static_cast<int32_t>(masks.First & allowed), static_cast<int32_t>(masks.Second & allowed)};
}

// The bits of a row's channels at their place among all channels; those past the mask's end are lost.
uint32_t atRow(const Device &device, int32_t row, int32_t mask)
{
    const uint64_t shift = uint64_t{device.HwFilteRowWidth} * static_cast<uint64_t>(row);
    return shift < 32 ? static_cast<uint32_t>(mask) << shift : 0;
}

// A library writes one for each input that the instrument has, however many are told.
struct RatesRead
{
    int32_t Sync = 0;
    std::array<int32_t, mostInputs> Inputs{};
};

// Gives the host a rate for each input, none below 0. The answer of a read that succeeded.
bool handOut(const Device &device, const AnyOperation &operation, RatesRead &read, int32_t *syncRate,
             int32_t *rates)
{
    const auto inputs = std::span(read.Inputs).first(std::min(device.ChansCfg.size(), read.Inputs.size()));
    int32_t lowest = read.Sync;
    for (int32_t rate : inputs) lowest = std::min(lowest, rate);
    trusted(device, lowest, 0, INT32_MAX, "as rate");
    read.Sync = std::max(read.Sync, 0);
    for (int32_t &rate : inputs) rate = std::max(rate, 0);
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}{}: {} {} {} @{}", operation.Library->Prefix, operation.Name,
               device.Index.load(), read.Sync, fmt::join(inputs, " "), device.ID);
    if (syncRate) *syncRate = read.Sync;
    if (rates) std::ranges::copy(inputs, rates);
    return true;
}

using RatesOperation = Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)>;

bool readRates(LockedDevice &locked, const RatesOperation &operation, int32_t *syncRate, int32_t *rates)
{
    RatesRead read;
    return callQuietly(locked, operation, &read.Sync, read.Inputs.data()) &&
           handOut(locked.device, operation, read, syncRate, rates);
}

void traceChannels(const Device &device, const AnyOperation &operation, int32_t row, Masks masks)
{
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}{}: {} {} {:X} {:X} @{}", operation.Library->Prefix, operation.Name,
               device.Index.load(), row, masks.First, masks.Second, device.ID);
}

bool sendChannels(LockedDevice &locked, const Operation<int32_t(int32_t, int32_t, int32_t, int32_t)> &operation,
                  int32_t row, Masks masks)
{
    traceChannels(locked.device, operation, row, masks);
    return callQuietly(locked, operation, row, masks.First, masks.Second);
}

// A family without rows; its trace shows one all the same.
bool sendChannels(LockedDevice &locked, const Operation<int32_t(int32_t, int32_t, int32_t)> &operation,
                  int32_t row, Masks masks)
{
    traceChannels(locked.device, operation, row, masks);
    return callQuietly(locked, operation, masks.First, masks.Second);
}

} // namespace

bool EnableMainEventFilter(Device &device, MainFilter &filter, uint8_t enable)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.EnableMainEventFilter, enable); break;
    case LibType::LM70: ok = call(locked, lm70.EnableEventFilter, enable); break;
    case LibType::CD90: ok = call(locked, cd90.EnableMainEventFilter, enable); break;
    default: return notSupported(device, "EnableMainEventFilter");
    }
    if (ok) filter.FilterEnabled = enable;
    return ok;
}

bool SetMainEventFilterChannels(Device &device, MainFilter &filter, int32_t row, FilterMasks masks)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    row = rowOf(row);
    const uint32_t allowed =
        device.LibType == LibType::LM70 && device.MeasMode == MeasMode::T3 ? rowMask : mainMask;
    const Masks sent = cut(masks, allowed);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = sendChannels(locked, zp.SetMainEventFilterChannels, row, sent); break;
    case LibType::LM70: ok = sendChannels(locked, lm70.SetEventFilterChannels, row, sent); break;
    case LibType::CD90: ok = sendChannels(locked, cd90.SetMainEventFilterChannels, row, sent); break;
    default: return notSupported(device, "SetMainEventFilterChannels");
    }
    if (ok) {
        filter.FilterMask1 &= atRow(device, row, sent.First);
        filter.FilterMask2 &= atRow(device, row, sent.Second);
    }
    return ok;
}

bool SetMainEventFilterParams(Device &device, MainFilter &filter, FilterParams params)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    auto [range, count, inverse] = params;
    checkLimits(rangeOf(device, mainTimeRanges), range, "HWFilter TimeRange", "SetMainEventFilterParams");
    checkLimits(rangeOf(device, mainMatchCounts), count, "HWFilter MatchCnt", "SetMainEventFilterParams");
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetMainEventFilterParams, range, count, inverse); break;
    case LibType::LM70: ok = call(locked, lm70.SetEventFilterParams, range, count, inverse); break;
    case LibType::CD90: ok = call(locked, cd90.SetMainEventFilterParams, range, count, inverse); break;
    default: return notSupported(device, "SetMainEventFilterParams");
    }
    if (ok) {
        filter.FilterTimeRange = range;
        filter.FilterMatchCnt = count;
        filter.FilterInverse = inverse;
    }
    return ok;
}

bool EnableRowEventFilter(Device &device, int32_t row, uint8_t enable)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    row = rowOf(row);
    switch (device.LibType) {
    case LibType::ZP: return call(locked, zp.EnableRowEventFilter, row, enable);
    case LibType::CD90: return call(locked, cd90.EnableGroupEventFilter, row, enable);
    default: return notSupported(device, "EnableRowEventFilter");
    }
}

bool SetRowEventFilter(Device &device, int32_t row, FilterParams params, FilterMasks masks)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    auto [range, count, inverse] = params;
    checkLimits(rangeOf(device, rowTimeRanges), range, "HWFilter TimeRange", "SetRowEventFilter");
    checkLimits(rangeOf(device, rowMatchCounts), count, "HWFilter MatchCnt", "SetRowEventFilter");
    row = rowOf(row);
    const auto [first, second] = cut(masks, rowMask);
    switch (device.LibType) {
    case LibType::ZP: return call(locked, zp.SetRowEventFilter, row, range, count, inverse, first, second);
    case LibType::CD90:
        return call(locked, cd90.SetGroupEventFilter, row, range, count, inverse, first, second);
    default: return notSupported(device, "SetRowEventFilter");
    }
}

bool SetFilterTestMode(Device &device, uint8_t testMode)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    switch (device.LibType) {
    case LibType::ZP: return call(locked, zp.SetFilterTestMode, testMode);
    case LibType::LM70: return call(locked, lm70.SetFilterTestMode, testMode);
    case LibType::CD90: return call(locked, cd90.SetFilterTestMode, testMode);
    default: return notSupported(device, "SetFilterTestMode");
    }
}

bool GetMainFilteredRates(Device &device, int32_t *syncRate, int32_t *rates)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    switch (device.LibType) {
    case LibType::ZP: return readRates(locked, zp.GetMainFilteredRates, syncRate, rates);
    case LibType::LM70: return readRates(locked, lm70.GetFilterOutputRates, syncRate, rates);
    case LibType::CD90: return readRates(locked, cd90.GetMainFilteredRates, syncRate, rates);
    default: return notSupported(device, "GetMainFilteredRates");
    }
}

bool GetRowFilteredRates(Device &device, int32_t *syncRate, int32_t *rates)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasFilter(device)) return false;
    switch (device.LibType) {
    case LibType::ZP: return readRates(locked, zp.GetRowFilteredRates, syncRate, rates);
    case LibType::LM70: return readRates(locked, lm70.GetFilterInputRates, syncRate, rates);
    case LibType::CD90: return readRates(locked, cd90.GetGroupFilteredRates, syncRate, rates);
    default: return notSupported(device, "GetRowFilteredRates");
    }
}

} // namespace Tessel
