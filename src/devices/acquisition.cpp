#include "devices/acquisition.h"

#include "devices/call.h"
#include "devices/identity.h"
#include "devices/libs/all.h"
#include "devices/libs/loader.h"
#include "devices/limits.h"
#include "devices/setting.h"

#include <algorithm>
#include <optional>

namespace Tessel {

namespace {

constexpr int32_t sequenceByCount = 2;
constexpr int32_t largestNumBins = 1048576;

bool sendBinning(LockedDevice &locked, int32_t binning)
{
    Device &device = locked.device;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetBinning, binning); break;
    case LibType::CD: ok = call(locked, cd.SetBinning, binning); break;
    case LibType::SV40: ok = call(locked, sv40.SetBinning, binning); break;
    case LibType::LM70: ok = call(locked, lm70.SetBinning, binning); break;
    case LibType::CD90: ok = call(locked, cd90.SetBinning, binning); break;
    default: return notSupported(device, "SetBinning");
    }
    if (ok) remember(locked, [&] { device.Binning = binning; });
    return ok;
}

bool sendHistoLength(LockedDevice &locked, int32_t code)
{
    Device &device = locked.device;
    checkLimits(device, &DeviceConfig::LengthCode, code);
    int32_t numBins = 0;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = callQuietly(locked, zp.SetHistoLen, code, &numBins); break;
    case LibType::CD: ok = callQuietly(locked, cd.SetHistoLen, code, &numBins); break;
    case LibType::SV40: ok = callQuietly(locked, sv40.SetHistoLen, code, &numBins); break;
    case LibType::LM70: ok = callQuietly(locked, lm70.SetHistoLen, code, &numBins); break;
    case LibType::CD90: ok = callQuietly(locked, cd90.SetHistoLen, code, &numBins); break;
    default: return notSupported(device, "SetHistoLength");
    }
    if (!ok) return false;
    traceCall(device, libraryOf(device.LibType)->SetHistoLen, code, numBins);
    const int32_t bins = trusted(device, numBins, 1, largestNumBins, "as number of bins");
    remember(locked, [&] {
        device.LengthCode = code;
        device.NumBins = static_cast<uint64_t>(bins);
    });
    return true;
}

// The control as the family's library numbers it; nothing where the family refuses it.
std::optional<int32_t> measControlOf(const Device &device, int32_t control)
{
    switch (device.LibType) {
    case LibType::CD: // 4 to 6 are free in the common numbers, and the library's own are 7 to 9 there
        control = std::min(control, 9);
        if (control >= 4 && control <= 6) break;
        return control > 6 ? control - 3 : control;
    case LibType::SV40: return std::min(control, 3);
    case LibType::LM70:
        control = std::min(control, 6);
        if (control == 4 || control == 5) break;
        return control;
    default: return std::min(control, 6);
    }
    logWrn(LogCategory::General, "Config: SetMeasControl is not supported for MeasControl={} @{}", control,
           device.ID);
    return {};
}

} // namespace

bool SetTimingMode(Device &device, int32_t mode)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (device.LibType != LibType::SV40 || !(device.Features & Feature::LowRes))
        return notSupportedByModel(device, "SetTimingMode");
    checkLimits(device, &DeviceConfig::TimingMode, mode);
    if (!call(locked, sv40.SetTimingMode, mode)) return false;
    remember(locked, [&] { device.TimingMode = mode; });
    return true;
}

bool SetStopOverflow(Device &device, const MeasContext &context, uint32_t stopCount, bool trace)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    const int32_t stops = stopCount != 0;
    uint32_t count = std::max(stopCount, 1u);
    checkLimits(device, &DeviceConfig::StopCount, count);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = callQuietly(locked, zp.SetStopOverflow, stops, count); break;
    case LibType::CD: ok = callQuietly(locked, cd.SetStopOverflow, stops, count); break;
    case LibType::SV40: ok = callQuietly(locked, sv40.SetStopOverflow, stops, count); break;
    case LibType::LM70: ok = callQuietly(locked, lm70.SetStopOverflow, stops, count); break;
    case LibType::CD90: ok = callQuietly(locked, cd90.SetStopOverflow, stops, count); break;
    default: return notSupported(device, "SetStopOverflow");
    }
    if (!ok || context.SequenceMode == sequenceByCount) return ok;
    remember(locked, [&] { device.StopCount = stopCount; });
    if (trace) traceCall(device, libraryOf(device.LibType)->SetStopOverflow, stops, count);
    return true;
}

bool SetBinning(Device &device, int32_t binning)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    remember(locked, [&] { device.MaxBinSteps = std::max(device.MaxBinSteps, 1); });
    checkLimits(device, &DeviceConfig::Binning, binning);
    const bool ok = hasTimeBins(device) && sendBinning(locked, binning);
    GetResolution(device);
    return ok;
}

bool SetOffset(Device &device, int32_t offset)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::Offset, offset);
    if (!hasTimeBins(device)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetOffset, offset); break;
    case LibType::CD: ok = call(locked, cd.SetOffset, offset); break;
    case LibType::SV40: ok = call(locked, sv40.SetOffset, offset); break;
    case LibType::LM70: ok = call(locked, lm70.SetOffset, offset); break;
    case LibType::CD90: ok = call(locked, cd90.SetOffset, offset); break;
    default: return notSupported(device, "SetOffset");
    }
    if (ok) remember(locked, [&] { device.Offset = offset; });
    return ok;
}

bool SetHistoLength(Device &device, int32_t code)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (code == -1) code = static_cast<int32_t>(limitsOf(device, &DeviceConfig::LengthCode).Max);
    switch (device.MeasMode) {
    case MeasMode::Histogramming: return sendHistoLength(locked, code);
    case MeasMode::T2:
        if (device.Index >= 0)
            remember(locked, [&] { device.NumBins = uint64_t{1024} << std::clamp(code, 0, 6); });
        return false;
    case MeasMode::T3:
        if (device.Index < 0) return false;
        remember(locked, [&] {
            device.NumBins = 32768;
            if (device.LibType == LibType::ZP) device.LengthCode = 5;
        });
        return false;
    }
    return false;
}

bool SetMeasControl(Device &device, int32_t control, int32_t startEdge, int32_t stopEdge)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    const auto sent = measControlOf(device, control);
    if (!sent) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetMeasControl, *sent, startEdge, stopEdge); break;
    case LibType::CD: ok = call(locked, cd.SetMeasControl, *sent, startEdge, stopEdge); break;
    case LibType::SV40: ok = call(locked, sv40.SetMeasControl, *sent, startEdge, stopEdge); break;
    case LibType::LM70: ok = call(locked, lm70.SetMeasControl, *sent, startEdge, stopEdge); break;
    case LibType::CD90: ok = call(locked, cd90.SetMeasControl, *sent, startEdge, stopEdge); break;
    default: return notSupported(device, "SetMeasControl");
    }
    if (ok)
        remember(locked, [&] {
            device.MeasControl = *sent; // on CD the library's number, which isn't the one that was asked for
            device.StartEdge = startEdge;
            device.StopEdge = stopEdge;
        });
    return ok;
}

bool SetTriggerOutput(Device &device, int32_t period)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!(device.Features & Feature::TrigOut)) return false;
    checkLimits(device, &DeviceConfig::TriggerOutput, period);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetTriggerOutput, period); break;
    case LibType::SV40: ok = call(locked, sv40.SetTriggerOutput, period); break;
    case LibType::LM70: ok = call(locked, lm70.SetTriggerOutput, period); break;
    case LibType::CD90: ok = call(locked, cd90.SetTriggerOutput, period); break;
    default: return notSupported(device, "SetTriggerOutput");
    }
    if (ok) remember(locked, [&] { device.TriggerOutput = period; });
    return ok;
}

bool SetLEDBrightness(Device &device, int32_t level)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::LedBrightness, level);
    if (device.LibType != LibType::CD90) return notSupported(device, "SetLEDBrightness");
    if (!call(locked, cd90.SetLEDBrightness, level)) return false;
    remember(locked, [&] { device.LedBrightness = level; });
    return true;
}

bool SetOflCompression(Device &device, int32_t holdTime)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &DeviceConfig::HoldTime, holdTime);
    if (device.MeasMode == MeasMode::Histogramming) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetOflCompression, holdTime); break;
    case LibType::LM70: ok = call(locked, lm70.SetOflCompression, holdTime); break;
    case LibType::CD90: ok = call(locked, cd90.SetOflCompression, holdTime); break;
    default: return notSupported(device, "SetOflCompression");
    }
    if (ok) remember(locked, [&] { device.HoldTime = holdTime; });
    return ok;
}

} // namespace Tessel
