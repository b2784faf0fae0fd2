#include "run/histogram_run.h"

#include "devices/primitives.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "measurements/measurement.h"
#include "run/steps.h"
#include "settings/system_ini.h"

namespace Tessel {

namespace {

bool setUpHistogramming(RunRef &ref)
{
    decideMeasControl(ref);
    readCountRates(ref.device, ref.context);
    GetWarnings(ref.device, ref.context);
    if (!initResult(ref) || !checkParams(ref)) return false;
    addStore(ref);
    if (!initStore(ref)) return false;
    beginMeasuring(ref);
    return true;
}

// Only an instrument builds histograms by itself, and no instrument is bound.
void fetchHistograms(RunRef &ref)
{
    if (ref.run->Request.Kind != MeasKind::Histogram) {
        reportDeviceError(ref.device, LogCategory::General,
                          "Device: Measurement not supported histogram mode! @{}", ref.device.ID);
        return;
    }
    notSupported(ref.device, "getHistogram");
    ref.context.Description.StopReason = StopReason::DataXferFail;
}

void tearDownHistogramming(RunRef &ref)
{
    endInput(ref);
    if (LogLevel.Api) logInf(LogCategory::Progress, "MeasureHistory finished @{}", ref.device.ID);
    requestStop(*ref.run);
    endStages(ref);
    endMeasurement(ref);
}

} // namespace

void runHistogramming(RunRef &ref)
{
    attempt(ref, [&ref] {
        if (!setUpHistogramming(ref))
            ref.context.Description.StopReason = StopReason::Error;
        else if (!isAborted(*ref.run) && ref.device.Index != -1)
            fetchHistograms(ref);
    });
    tearDownHistogramming(ref);
}

} // namespace Tessel
