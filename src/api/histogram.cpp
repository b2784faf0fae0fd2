#include "api/exports.h"
#include "devices/locked_device.h"
#include "run/params.h"
#include "run/requests.h"
#include "session/open_close.h"

using namespace Tessel;

bool getHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save, uint32_t *data,
                  uint8_t *finished)
{
    return guardedStart("getHistogram", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getHistogram {} {} {} @{}", acqTime, modeOf(target->device),
                   waitFinished, target->device.ID);
        RunRequest request =
            requestOf(MeasKind::Histogram, target->device, acqTime, waitFinished, save, finished);
        request.HistoData = data;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool setHistoT2NumBins(const char16_t *id, uint64_t numBins)
{
    return guarded("setHistoT2NumBins", false, [&] {
        DeviceRef target = deviceOf(id);
        Device &device = target->device;
        LockedDevice locked(device);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setHistoT2NumBins {} {} {} @{}", device.NumBins, numBins,
                   static_cast<int32_t>(device.MeasMode), device.ID);
        if (device.MeasMode != MeasMode::T2) {
            logErr(LogCategory::General, "Tessel_DLL: To set the number of bins is only allowed in T2 mode!");
            return false;
        }
        remember(locked, [&] { device.NumBins = numBins; });
        return true;
    });
}

bool setHistoT2BinWidth(const char16_t *id, uint64_t binWidth)
{
    return guarded("setHistoT2BinWidth", false, [&] {
        withParams(deviceOf(id)->context,
                   [&](MeasParams &params) { params.Histogram.HistoBinWidth = binWidth; });
        return true;
    });
}

bool setHistoT2RefChan(const char16_t *id, uint8_t refChan)
{
    return guarded("setHistoT2RefChan", false, [&] {
        withParams(deviceOf(id)->context, [&](MeasParams &params) { params.Histogram.HistoRefChan = refChan; });
        return true;
    });
}
