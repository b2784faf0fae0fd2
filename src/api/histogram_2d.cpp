#include "api/exports.h"
#include "run/requests.h"
#include "session/open_close.h"

using namespace Tessel;

bool get2dHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save, uint32_t *data,
                    uint8_t *finished)
{
    return guardedStart("get2dHistogram", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API get2dHistogram {} {} {} @{}", acqTime, modeOf(target->device),
                   waitFinished, target->device.ID);
        RunRequest request =
            requestOf(MeasKind::Histo2d, target->device, acqTime, waitFinished, save, finished);
        request.HistoData = data;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool setHisto2dParams(const char16_t *id, uint8_t startChan, uint8_t chanX, uint8_t chanY, uint64_t offsetX,
                      uint64_t offsetY, uint64_t binWidthX, uint64_t binWidthY, uint64_t numBinsX,
                      uint64_t numBinsY)
{
    return guarded("setHisto2dParams", false, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setHisto2dParams {} {} {} {} {} {} {} @{}", startChan, chanX,
                   chanY, offsetX, offsetY, binWidthX, binWidthY, target->device.ID);
        const std::lock_guard lock(target->context.ParamsLock);
        Histo2dParams &params = target->context.Params.Histo2d;
        params.H2dStartChan = startChan;
        params.H2dChanX = chanX;
        params.H2dChanY = chanY;
        params.H2dOffsetX = offsetX;
        params.H2dOffsetY = offsetY;
        params.H2dBinWidthX = binWidthX;
        params.H2dBinWidthY = binWidthY;
        params.H2dNumBinsX = numBinsX;
        params.H2dNumBinsY = numBinsY;
        return true;
    });
}

// The id is ignored: hosts know it so.
bool setHisto2dTotMode(const char16_t *, uint8_t totMode, double slope)
{
    return guarded("setHisto2dTotMode", false, [&] {
        DeviceRef target = currentDevice();
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setHisto2dTotMode {} {} @{}", totMode, slope, target->device.ID);
        const std::lock_guard lock(target->context.ParamsLock);
        target->context.Params.Histo2d.H2dTotMode = totMode;
        target->context.Params.Histo2d.H2dSlope = slope;
        return true;
    });
}

bool setHisto2dRecoveryTimingCorrection(const char16_t *id, uint64_t min, uint64_t max, uint64_t offsetX,
                                        uint64_t offsetY, double slope)
{
    return guarded("setHisto2dRecoveryTimingCorrection", false, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setHisto2ddTimeFilter {} {} @{}", min, max, target->device.ID);
        const std::lock_guard lock(target->context.ParamsLock);
        Histo2dParams &params = target->context.Params.Histo2d;
        params.H2dRecoveryMin = min;
        params.H2dRecoveryMax = max;
        params.H2dRecoveryOffsetX = offsetX;
        params.H2dRecoveryOffsetY = offsetY;
        params.H2dRecoverySlope = slope;
        return true;
    });
}
