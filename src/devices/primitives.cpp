#include "devices/primitives.h"

#include "devices/call.h"
#include "devices/families.h"
#include "devices/libs/all.h"

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
    if (isRemote(device)) {
        if (device.Remote.StartMeasure) device.Remote.StartMeasure(acqTimeMs);
        return true;
    }
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
    LockedDevice locked(device);
    if (rows.size() < (device.ChansCfg.size() + 1) * device.NumBins) return false;
    uint32_t *counts = rows.data() + device.NumBins;
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
    LockedDevice locked(device);
    if (device.MeasMode != MeasMode::Histogramming) return false;
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
    const std::string info = text.text();
    logWrn(LogCategory::Device, "Device: {} @{}", withLines(info), locked.device.ID);
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

} // namespace Tessel
