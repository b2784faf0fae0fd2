#include "api/exports.h"
#include "devices/source.h"
#include "measurements/correlation_setup.h"
#include "run/requests.h"
#include "session/open_close.h"

#include <cmath>

using namespace Tessel;

bool setG2Params(const char16_t *id, uint64_t chan1, uint64_t chan2, double window, double binWidth,
                 uint8_t normalize)
{
    return guarded("setG2Params", false, [&] {
        DeviceRef target = deviceOf(id);
        const double limited = limitedBinWidth(factsOf(target->device), binWidth);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setCorrelationParams {} {} {} {} @{}", chan1, chan2, window,
                   limited, target->device.ID);
        CorrelationParams &params = target->context.Params.Correlation;
        params.CorrMode = CorrMode::G2;
        params.CorrChan1 = chan1;
        params.CorrChan2 = chan2;
        params.CorrWindow = lagPs(std::round(window));
        params.CorrBinWidth = lagPs(std::round(limited));
        params.CorrNormalize = normalize;
        return true;
    });
}

namespace {

struct LagParams
{
    uint64_t Chan1, Chan2;
    double MinLag, MaxLag; // ps
    uint64_t Steps;
};

bool setLagParams(const char16_t *id, uint32_t mode, const LagParams &given, uint64_t *numPoints)
{
    DeviceRef target = deviceOf(id);
    CorrelationParams &params = target->context.Params.Correlation;
    params.CorrMode = mode;
    params.CorrChan1 = given.Chan1;
    params.CorrChan2 = given.Chan2;
    params.CorrMinLag = lagPs(std::round(given.MinLag));
    params.CorrWindow = lagPs(std::round(given.MaxLag));
    params.CorrSteps = given.Steps;
    const uint64_t points =
        target == noDevice() ? 0 : lagGridOf(factsOf(target->device), params).Centers.size() - 1;
    if (numPoints) *numPoints = points;
    if (LogLevel.Api) // FFCS under the same name: hosts know it so
        logInf(LogCategory::Progress, "API setFCSParams {} {} {} {} {} {} @{}", given.Chan1, given.Chan2,
               points, given.MinLag, given.MaxLag, given.Steps, target->device.ID);
    return true;
}

} // namespace

bool setFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints, double minLag,
                  double maxLag, uint64_t steps)
{
    return guarded("setFCSParams", false, [&] {
        return setLagParams(id, CorrMode::FCS, {chan1, chan2, minLag, maxLag, steps}, numPoints);
    });
}

bool setFFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints, double minLag,
                   double maxLag, uint64_t steps)
{
    return guarded("setFFCSParams", false, [&] {
        return setLagParams(id, CorrMode::FFCS, {chan1, chan2, minLag, maxLag, steps}, numPoints);
    });
}

namespace {

void logFirstLag(const Device &device, const CorrelationParams &params)
{
    uint64_t center = 0, width = params.CorrBinWidth;
    if (params.CorrMode != CorrMode::G2) {
        const LagGrid grid = lagGridOf(factsOf(device), params);
        center = grid.Centers[0];
        width = grid.Widths[0];
    }
    logInf(LogCategory::Progress, "API getCorrelation {} {} @{}", center, width, device.ID);
}

} // namespace

bool getCorrelation(const char16_t *id, int32_t acqTime, uint8_t waitFinished, uint8_t save, double *y,
                    double *x, uint8_t *finished)
{
    return guardedStart("getCorrelation", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getCorrelation {} {} {} @{}", acqTime, modeOf(target->device),
                   waitFinished, target->device.ID);
        const auto acqTimeMs = static_cast<uint32_t>(acqTime);
        if (target != noDevice()) fillLagAxis(factsOf(target->device), target->context.Params.Correlation, x);
        RunRequest request =
            requestOf(MeasKind::Correlation, target->device, acqTimeMs, waitFinished, save, finished);
        request.CorrResult = y;
        startMeasurement(target, request, deviceLookUp);
        if (LogLevel.Api) // the run has begun
            tryToLog([&] { logFirstLag(target->device, target->context.Params.Correlation); });
    });
}
