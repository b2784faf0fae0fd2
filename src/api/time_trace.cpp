#include "api/exports.h"
#include "run/requests.h"
#include "session/open_close.h"
#include "stream/rounding.h"

using namespace Tessel;

bool getTimeTrace(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save, uint32_t *data,
                  uint64_t *firstBin, uint8_t *finished)
{
    return guardedStart("getTimeTrace", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getTimeTrace {} {} {} @{}", acqTime, modeOf(target->device),
                   waitFinished, target->device.ID);
        RunRequest request =
            requestOf(MeasKind::TimeTrace, target->device, acqTime, waitFinished, save, finished);
        request.HistoData = data;
        request.TraceFirstBin = firstBin;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool setTimeTraceNumBins(const char16_t *id, int32_t numBins)
{
    return guarded("setTimeTraceNumBins", false, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setTimeTraceNumBins {} @{}", numBins, target->device.ID);
        const std::lock_guard lock(target->context.ParamsLock);
        target->context.Params.TimeTrace.TraceNumBins =
            static_cast<uint64_t>(int64_t{numBins}); // with its sign
        return true;
    });
}

bool setTimeTraceHistorySize(const char16_t *id, double seconds)
{
    return guarded("setTimeTraceHistorySize", false, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setTimeTraceHistorySize {} @{}", seconds, target->device.ID);
        const std::lock_guard lock(target->context.ParamsLock);
        target->context.Params.TimeTrace.TraceHistorySize = truncated<uint64_t>(seconds * 1e12);
        return true;
    });
}
