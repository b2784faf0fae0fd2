#include "devices/rates.h"

#include "devices/call.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "devices/primitives.h"
#include "stream/rounding.h"

#include <algorithm>
#include <array>
#include <limits>

namespace Tessel {

bool getElapsedMeasTime(Device &device, double &elapsed)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    double value = elapsed;
    auto read = [&](LockedDevice &locked) {
        switch (device.LibType) {
        case LibType::ZP: return callQuietly(locked, zp.GetElapsedMeasTime, &value);
        case LibType::CD: return callQuietly(locked, cd.GetElapsedMeasTime, &value);
        case LibType::SV40: return callQuietly(locked, sv40.GetElapsedMeasTime, &value);
        case LibType::LM70: return callQuietly(locked, lm70.GetElapsedMeasTime, &value);
        case LibType::CD90: return callQuietly(locked, cd90.GetElapsedMeasTime, &value);
        default: return notSupported(device, "getElapsedMeasTime");
        }
    };
    LockedDevice locked(device);
    if (!read(locked)) return false;
    if (isFinite(device, value, "as elapsed time")) elapsed = value;
    return true;
}

namespace {

// Units of 100 ns of a time in ps with 96 bits, of which the low 64 of its ns are taken as signed.
int64_t startTimeOf(uint32_t high, uint32_t middle, uint32_t low)
{
    const uint64_t upper = (static_cast<uint64_t>(high) << 32) | middle;
    const uint64_t rest = ((upper % 1000) << 32) | low;
    return static_cast<int64_t>((upper / 1000 << 32) + rest / 1000) / 100;
}

} // namespace

bool GetStartTime(Device &device, MeasContext &context)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    uint32_t high = 0, middle = 0, low = 0;
    auto read = [&](LockedDevice &locked) {
        switch (device.LibType) {
        case LibType::ZP: return callQuietly(locked, zp.GetStartTime, &high, &middle, &low);
        case LibType::CD90: return callQuietly(locked, cd90.GetStartTime, &high, &middle, &low);
        case LibType::CD:
        case LibType::SV40:
        case LibType::LM70: return false;
        default: return notSupported(device, "getElapsedMeasTime"); // the other call's name: hosts know it so
        }
    };
    LockedDevice locked(device);
    if (!read(locked)) return false;
    context.Description.StartWords = {low, middle, high};
    context.Description.StartTime = startTimeOf(high, middle, low);
    return true;
}

bool getSyncPeriod(Device &device, MeasContext &context, double &seconds)
{
    if (isFile(device)) seconds = context.Description.AveSyncPeriod;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    double value = seconds;
    auto read = [&](LockedDevice &locked) {
        switch (device.LibType) {
        case LibType::ZP: return callQuietly(locked, zp.GetSyncPeriod, &value);
        case LibType::CD: return callQuietly(locked, cd.GetSyncPeriod, &value);
        case LibType::SV40: return callQuietly(locked, sv40.GetSyncPeriod, &value);
        case LibType::LM70: return callQuietly(locked, lm70.GetSyncPeriod, &value);
        case LibType::CD90: return callQuietly(locked, cd90.GetSyncPeriod, &value);
        default: return notSupported(device, "getSyncPeriod");
        }
    };
    LockedDevice locked(device);
    if (!read(locked)) return false;
    if (isFinite(device, value, "as sync period")) seconds = value;
    context.Description.AveSyncPeriod = seconds;
    return true;
}

namespace {

constexpr int32_t anyRate = std::numeric_limits<int32_t>::max();

void storeSyncRate(MeasContext &context, int32_t rate)
{
    context.SyncRate = rate;
    context.Description.AveSyncRate = rate;
}

bool readSyncRate(LockedDevice &locked, const decltype(CommonOperations::GetSyncRate) &operation,
                  MeasContext &context, int32_t &rate)
{
    int32_t value = 0;
    if (!callQuietly(locked, operation, &value)) return false;
    rate = trusted(locked.device, value, 0, anyRate, "as sync rate");
    storeSyncRate(context, rate);
    traceCall(locked.device, operation, rate);
    return true;
}

} // namespace

bool getSyncRate(Device &device, MeasContext &context, int32_t &rate)
{
    rate = isFile(device) ? std::max(nearest<int32_t>(context.Description.AveSyncRate), 0) : 0;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readSyncRate(locked, zp.GetSyncRate, context, rate);
    case LibType::CD: return readSyncRate(locked, cd.GetSyncRate, context, rate);
    case LibType::SV40: return readSyncRate(locked, sv40.GetSyncRate, context, rate);
    case LibType::LM70: return readSyncRate(locked, lm70.GetSyncRate, context, rate);
    case LibType::CD90: return readSyncRate(locked, cd90.GetSyncRate, context, rate);
    default: return notSupported(device, "getSyncRate");
    }
}

namespace {

// What an instrument gives has a number for each of its inputs, however many are told.
using RateArray = std::array<int32_t, mostInputs + 1>;

bool readAllRates(LockedDevice &locked,
                  const Operation<int32_t(int32_t idx, int32_t *syncRate, int32_t *rates)> &operation,
                  MeasContext &context, RateArray &rates)
{
    int32_t syncRate = 0;
    if (!callQuietly(locked, operation, &syncRate, rates.data())) return false;
    storeSyncRate(context, trusted(locked.device, syncRate, 0, anyRate, "as sync rate"));
    return true;
}

// A failed call is reported, and its rate is stored all the same; of an instrument that it shows lost, no more.
bool readEachRate(LockedDevice &locked,
                  const Operation<int32_t(int32_t idx, int32_t channel, int32_t *rate)> &operation,
                  MeasContext &context, RateArray &rates)
{
    int32_t syncRate = 0;
    const Device &device = locked.device;
    const bool wasOpen = device.IsOpen;
    bool good = getSyncRate(locked.device, context, syncRate);
    for (size_t i = 0; i < device.ChansCfg.size() && device.IsOpen == wasOpen; ++i)
        good = callQuietly(locked, operation, device.ChansCfg[i].Index, &rates[i]);
    return good;
}

bool readRates(LockedDevice &locked, MeasContext &context, RateArray &rates)
{
    const Device &device = locked.device;
    switch (device.LibType) {
    case LibType::ZP: return readAllRates(locked, zp.GetAllCountRates, context, rates);
    case LibType::CD: return readEachRate(locked, cd.GetCountRate, context, rates);
    case LibType::SV40: return readEachRate(locked, sv40.GetCountRate, context, rates);
    case LibType::LM70: return readAllRates(locked, lm70.GetAllCountRates, context, rates);
    case LibType::CD90: return readAllRates(locked, cd90.GetAllCountRates, context, rates);
    default: return notSupported(device, "getCountRates");
    }
}

} // namespace

bool readCountRates(Device &device, MeasContext &context)
{
    if (device.DeviceType == DeviceType::File || device.DeviceType == DeviceType::Remote) return false;
    LockedDevice locked(device);
    RateArray rates{};
    for (size_t i = 0; i < context.CountRates.size(); ++i) rates[i] = context.CountRates[i];
    const bool good = readRates(locked, context, rates);
    std::string text;
    int64_t sum = context.SyncRate;
    for (size_t i = 0; i < device.ChansCfg.size(); ++i) {
        const int32_t rate = trusted(device, rates[i], 0, anyRate, "as count rate");
        if (i < context.CountRates.size()) context.CountRates[i] = rate;
        text += fmt::format(" {}", rate);
        sum += rate;
    }
    logDeb(LogCategory::Progress, "Dev {}: SyncRate: {}, CntRates: {} ({})", device.Index.load(),
           context.SyncRate.load(), text, sum);
    return good;
}

} // namespace Tessel
