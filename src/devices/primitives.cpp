#include "devices/primitives.h"

#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/cd.h"
#include "devices/libs/cd90.h"
#include "devices/libs/lm70.h"
#include "devices/libs/sv40.h"
#include "devices/libs/zp.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <algorithm>
#include <array>

namespace Tessel {

namespace {

bool start(LockedDevice &locked, const decltype(CommonOperations::StartMeas) &operation, int32_t acqTimeMs,
           bool trace)
{
    if (trace) traceCall(locked.device, operation, acqTimeMs);
    const std::string location = fmt::format("{}StartMeas devIdx:{} tAcq:{}s", operation.Library->Prefix,
                                             locked.device.Index.load(), acqTimeMs / 1000);
    return callQuietlyAt(locked, operation, location, acqTimeMs);
}

// An operation on the device alone, whose trace line is asked for.
bool callTraced(LockedDevice &locked, const Operation<int32_t(int32_t idx)> &operation, bool trace)
{
    return trace ? call(locked, operation) : callQuietly(locked, operation);
}

} // namespace

bool StartMeasure(Device &device, int32_t acqTimeMs, bool trace)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return start(locked, zp.StartMeas, acqTimeMs, trace);
    case LibType::CD: return start(locked, cd.StartMeas, acqTimeMs, trace);
    case LibType::SV40: return start(locked, sv40.StartMeas, acqTimeMs, trace);
    case LibType::LM70: return start(locked, lm70.StartMeas, acqTimeMs, trace);
    case LibType::CD90: return start(locked, cd90.StartMeas, acqTimeMs, trace);
    default: return notSupported(device, "StartMeasure");
    }
}

bool StopMeasure(Device &device, bool trace)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return callTraced(locked, zp.StopMeas, trace);
    case LibType::CD: return callTraced(locked, cd.StopMeas, trace);
    case LibType::SV40: return callTraced(locked, sv40.StopMeas, trace);
    case LibType::LM70: return callTraced(locked, lm70.StopMeas, trace);
    case LibType::CD90: return callTraced(locked, cd90.StopMeas, trace);
    default: return notSupported(device, "StopMeasure");
    }
}

bool readFifo(Device &device, uint32_t *room, uint64_t &count)
{
    const auto capacity = static_cast<int32_t>(familyOf(device.LibType).FifoWords);
    int32_t records = 0;
    count = 0;
    auto read = [&](LockedDevice &locked) {
        switch (device.LibType) {
        case LibType::ZP: return callQuietly(locked, zp.ReadFiFo, room, &records);
        case LibType::CD: return callQuietly(locked, cd.ReadFiFo, room, capacity, &records);
        case LibType::SV40: return callQuietly(locked, sv40.ReadFiFo, room, capacity, &records);
        case LibType::LM70: return callQuietly(locked, lm70.ReadFiFo, room, &records);
        case LibType::CD90: return callQuietly(locked, cd90.ReadFiFo, room, &records);
        default: return notSupported(device, "readFifo");
        }
    };
    LockedDevice locked(device);
    if (!read(locked)) return false;
    count = static_cast<uint64_t>(trusted(device, records, 0, capacity, "records"));
    return true;
}

namespace {

// One call for all inputs, then the clear, if there is to be one.
bool readAll(LockedDevice &locked, const Operation<int32_t(int32_t idx, uint32_t *counts)> &getAll,
             const decltype(CommonOperations::ClearHistMem) &clearMem, uint32_t *counts, bool clear,
             bool traceClear)
{
    return callQuietly(locked, getAll, counts) && (!clear || callTraced(locked, clearMem, traceClear));
}

// A call for each input, which clears by itself.
bool readEach(LockedDevice &locked,
              const Operation<int32_t(int32_t idx, uint32_t *counts, int32_t channel, int32_t clear)> &getOne,
              uint32_t *counts, bool clear)
{
    const Device &device = locked.device;
    for (size_t channel = 0; channel < device.ChansCfg.size(); ++channel)
        if (!callQuietly(locked, getOne, counts + channel * device.NumBins, static_cast<int32_t>(channel),
                         clear))
            return false;
    return true;
}

} // namespace

bool getHistograms(Device &device, std::span<uint32_t> rows, bool clear, bool traceClear)
{
    if (rows.size() < (device.ChansCfg.size() + 1) * device.NumBins) return false;
    uint32_t *counts = rows.data() + device.NumBins;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readAll(locked, zp.GetAllHistograms, zp.ClearHistMem, counts, clear, traceClear);
    case LibType::CD: return readEach(locked, cd.GetHistogram, counts, clear);
    case LibType::SV40: return readEach(locked, sv40.GetHistogram, counts, clear);
    case LibType::LM70:
        return readAll(locked, lm70.GetAllHistograms, lm70.ClearHistMem, counts, clear, traceClear);
    case LibType::CD90:
        return readAll(locked, cd90.GetAllHistograms, cd90.ClearHistMem, counts, clear, traceClear);
    default: return notSupported(device, "getHistogram");
    }
}

bool clearHistMem(Device &device, bool trace)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    if (device.MeasMode != MeasMode::Histogramming) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return callTraced(locked, zp.ClearHistMem, trace);
    case LibType::CD: return callTraced(locked, cd.ClearHistMem, trace);
    case LibType::SV40: return callTraced(locked, sv40.ClearHistMem, trace);
    case LibType::LM70: return callTraced(locked, lm70.ClearHistMem, trace);
    case LibType::CD90: return callTraced(locked, cd90.ClearHistMem, trace);
    default: return notSupported(device, "ClearHistMem");
    }
}

namespace {

constexpr int32_t stillActive = 32; // a flag that is no news

// "ZP_GetFlags: 0 0x00000021 @1010101"
void traceWord(const Device &device, const AnyOperation &operation, int32_t word)
{
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}{}: {} 0x{:08x} @{}", operation.Library->Prefix, operation.Name,
               device.Index.load(), static_cast<uint32_t>(word), device.ID);
}

bool readFlags(LockedDevice &locked, const decltype(CommonOperations::GetFlags) &operation, int32_t &flags,
               bool trace)
{
    int32_t word = 0;
    if (!callQuietly(locked, operation, &word)) return false;
    flags = word;
    if (trace && flags != 0 && flags != stillActive) traceWord(locked.device, operation, flags);
    return true;
}

// The location is empty: a failure is told without it.
bool readStatus(LockedDevice &locked, const decltype(CommonOperations::CTCStatus) &operation, int32_t &status,
                bool trace)
{
    int32_t now = 0;
    if (!callQuietlyAt(locked, operation, "", &now)) return false;
    if (trace && now != status) traceWord(locked.device, operation, now);
    status = now;
    return true;
}

} // namespace

bool getFlags(Device &device, int32_t &flags, bool trace)
{
    flags = 0;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readFlags(locked, zp.GetFlags, flags, trace);
    case LibType::CD: return readFlags(locked, cd.GetFlags, flags, trace);
    case LibType::SV40: return readFlags(locked, sv40.GetFlags, flags, trace);
    case LibType::LM70: return readFlags(locked, lm70.GetFlags, flags, trace);
    case LibType::CD90: return readFlags(locked, cd90.GetFlags, flags, trace);
    default: return notSupported(device, "getFlags");
    }
}

bool getCtcStatus(Device &device, int32_t &status, bool trace)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readStatus(locked, zp.CTCStatus, status, trace);
    case LibType::CD: return readStatus(locked, cd.CTCStatus, status, trace);
    case LibType::SV40: return readStatus(locked, sv40.CTCStatus, status, trace);
    case LibType::LM70: return readStatus(locked, lm70.CTCStatus, status, trace);
    case LibType::CD90: return readStatus(locked, cd90.CTCStatus, status, trace);
    default: return notSupported(device, "getCtcStatus");
    }
}

namespace {

bool readWarnings(LockedDevice &locked, const CommonOperations &library, MeasContext &context)
{
    int32_t warnings = 0;
    if (!callQuietly(locked, library.GetWarnings, &warnings)) return false;
    TextRoom<65536> text;
    if (warnings == 0 || !callQuietlyAt(locked, library.GetWarningsText,
                                        locationOf(locked.device, library.GetWarnings), text.Bytes, warnings))
        return true;
    context.Description.WarningsFlag = warnings;
    logWrn(LogCategory::Device, "Device: {} @{}", visibleLines(text.text()), locked.device.ID);
    return true;
}

} // namespace

bool GetWarnings(Device &device, MeasContext &context)
{
    if (device.DeviceType != DeviceType::Instrument || !device.IsOpen) return true;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readWarnings(locked, zp, context);
    case LibType::CD: return readWarnings(locked, cd, context);
    case LibType::SV40: return readWarnings(locked, sv40, context);
    case LibType::LM70: return readWarnings(locked, lm70, context);
    case LibType::CD90: return readWarnings(locked, cd90, context);
    default: return notSupported(device, "GetWarnings");
    }
}

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
    storeFinite(device, value, elapsed, "as elapsed time");
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
    storeFinite(device, value, seconds, "as sync period");
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

bool getSyncRate(Device &device, MeasContext &context, int32_t &rate, bool alreadyLocked)
{
    rate = isFile(device) ? std::max(nearest<int32_t>(context.Description.AveSyncRate), 0) : 0;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device, alreadyLocked);
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

// A failed call is reported, and its rate is stored all the same.
bool readEachRate(LockedDevice &locked,
                  const Operation<int32_t(int32_t idx, int32_t channel, int32_t *rate)> &operation,
                  MeasContext &context, RateArray &rates)
{
    int32_t syncRate = 0;
    bool good = getSyncRate(locked.device, context, syncRate, true);
    for (size_t i = 0; i < locked.device.ChansCfg.size(); ++i)
        good = callQuietly(locked, operation, locked.device.ChansCfg[i].Index, &rates[i]);
    return good;
}

bool readRates(Device &device, MeasContext &context, RateArray &rates)
{
    LockedDevice locked(device);
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
    RateArray rates{};
    for (size_t i = 0; i < context.CountRates.size(); ++i) rates[i] = context.CountRates[i];
    const bool good = readRates(device, context, rates);
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

std::string GetDebugInfo(LockedDevice &locked)
{
    const Device &device = locked.device;
    if (device.DeviceType != DeviceType::Instrument) return {};
    TextRoom<65536> text;
    auto read = [&] {
        switch (device.LibType) {
        case LibType::ZP: return zp.GetDebugInfo(device.Index, text.Bytes);
        case LibType::CD: return cd.GetHardwareDebugInfo(device.Index, text.Bytes);
        case LibType::SV40: return sv40.GetHardwareDebugInfo(device.Index, text.Bytes);
        case LibType::LM70: return lm70.GetDebugInfo(device.Index, text.Bytes);
        case LibType::CD90: return cd90.GetDebugInfo(device.Index, text.Bytes);
        default:
            logWrn(LogCategory::General, "GetDebugInfo is not supported for libType {} @{}",
                   libTypeText(device.LibType), device.ID);
            return -1;
        }
    };
    return read() < 0 ? std::string() : visibleLines(text.text());
}

bool hasDebugDump(const Device &device)
{
    return device.LibType == LibType::ZP || device.LibType == LibType::LM70 || device.LibType == LibType::CD90;
}

bool SaveDebugDump(LockedDevice &locked, std::string_view folder)
{
    const Device &device = locked.device;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    const std::string path = nativePath(std::string(folder) + "\\").string();
    auto save = [&] {
        switch (device.LibType) {
        case LibType::ZP: return zp.SaveDebugDump(device.Index, path.c_str());
        case LibType::LM70: return lm70.SaveDebugDump(device.Index, path.c_str());
        case LibType::CD90: return cd90.SaveDebugDump(device.Index, path.c_str());
        default:
            logWrn(LogCategory::General, "SaveDebugDump is not supported for libType {} @{}",
                   libTypeText(device.LibType), device.ID);
            return 0;
        }
    };
    const int32_t result = save();
    if (result < 0)
        logWrn(LogCategory::General, "SaveDebugDump failed: {} ({})@{}", visible(path), result, device.ID);
    return result >= 0 && hasDebugDump(device);
}

} // namespace Tessel
