#include "api/exports.h"
#include "devices/source.h"
#include "measurements/correlation_setup.h"
#include "measurements/lag_reach.h"
#include "measurements/measurement.h"
#include "run/params.h"
#include "run/requests.h"
#include "session/open_close.h"
#include "threads/run_control.h"

#include <algorithm>
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
        const std::lock_guard lock(target->context.ParamsLock);
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

// As they are then.
CorrelationParams takeLagParams(CorrelationParams &params, uint32_t mode, const LagParams &given)
{
    params.CorrMode = mode;
    params.CorrChan1 = given.Chan1;
    params.CorrChan2 = given.Chan2;
    params.CorrMinLag = lagPs(std::round(given.MinLag));
    params.CorrWindow = lagPs(std::round(given.MaxLag));
    params.CorrSteps = given.Steps;
    return params;
}

bool setLagParams(const char16_t *id, uint32_t mode, const LagParams &given, uint64_t *numPoints)
{
    DeviceRef target = deviceOf(id);
    const CorrelationParams set = withParams(
        target->context, [&](MeasParams &params) { return takeLagParams(params.Correlation, mode, given); });
    const uint64_t points =
        target == noDevice() ? 0 : lagGridOf(factsOf(target->device), set).Centers.size() - 1;
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
        if (target != noDevice())
            fillLagAxis(factsOf(target->device), paramsOf(target->context).Correlation, x);
        RunRequest request =
            requestOf(MeasKind::Correlation, target->device, acqTimeMs, waitFinished, save, finished);
        request.CorrResult = y;
        startMeasurement(target, request, deviceLookUp);
        if (LogLevel.Api) // the run has begun
            tryToLog([&] { logFirstLag(target->device, paramsOf(target->context).Correlation); });
    });
}

bool tessel_setCorrelationFromStart(const char16_t *id, uint8_t fromStart)
{
    return guarded("tessel_setCorrelationFromStart", true, [&] {
        DeviceRef target = deviceOf(id);
        withParams(target->context,
                   [&](MeasParams &params) { params.Correlation.CorrFromStart = fromStart != 0; });
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API tessel_setCorrelationFromStart {} @{}", fromStart,
                   target->device.ID);
        return true;
    });
}

namespace {

bool isG2(const CorrelationWork &work)
{
    return work.Params.CorrMode == CorrMode::G2;
}

// The last lag of FCS and FFCS has no bin of its own.
uint64_t binsOf(const CorrelationWork &work)
{
    return isG2(work) || work.Lags == 0 ? work.Lags : work.Lags - 1;
}

void copyRows(const CorrelationWork &work, const tessel_correlation_counts &to)
{
    const uint64_t bins = binsOf(work);
    for (size_t row = 0; row < (isG2(work) ? 2 : corrRowCount); ++row)
        if (to.pairs[row]) std::copy_n(work.Rows[row].get(), bins, to.pairs[row]);
    for (uint64_t k = 0; to.edges && k <= bins; ++k)
        to.edges[k] = isG2(work) ? k * work.Params.CorrBinWidth : work.Grid.Edges[k];
    for (size_t channel = 0; channel < 2; ++channel) {
        auto fill = [&](uint64_t *events, auto eventsOf) {
            if (!events) return;
            if (isG2(work))
                std::fill_n(events, bins + 1, work.CorrCounts[channel]);
            else
                std::ranges::copy(eventsOf(work, channel), events);
        };
        fill(to.laterEvents[channel], laterEvents);
        fill(to.earlierEvents[channel], earlierEvents);
    }
}

// False: the arrays are too small.
bool handOutCounts(const CorrelationWork &work, tessel_correlation_counts &to)
{
    to.bins = binsOf(work);
    to.mode = static_cast<int32_t>(work.Params.CorrMode);
    to.chan1 = work.Params.CorrChan1;
    to.chan2 = work.Params.CorrChan2;
    std::ranges::copy(work.CorrCounts, to.events);
    std::ranges::copy(work.FirstTime, to.first);
    std::ranges::copy(work.LastTimes, to.last);
    to.selfPairs = isG2(work) && to.chan1 == to.chan2 ? to.events[0] - work.NumAtZero : 0;
    if (to.capacity <= to.bins) return to.capacity == 0;
    copyRows(work, to);
    return true;
}

} // namespace

bool tessel_getCorrelationCounts(const char16_t *id, tessel_correlation_counts *counts)
{
    return guarded("tessel_getCorrelationCounts", false, [&] {
        if (!counts || counts->size < sizeof(tessel_correlation_counts)) {
            logErr(LogCategory::General,
                   "API tessel_getCorrelationCounts: no place for the counts, or of another version");
            return false;
        }
        counts->bins = 0;
        DeviceRef target = deviceOf(id);
        const auto run = currentRun(target->context);
        if (!run || run->Request.Kind != MeasKind::Correlation) return false;
        std::lock_guard lock(target->context.ManisLock);
        const auto work = resultAs<Correlation>(*run).Work;
        return work && handOutCounts(*work, *counts);
    });
}
