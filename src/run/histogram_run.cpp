#include "run/histogram_run.h"

#include "devices/primitives.h"
#include "devices/result.h"
#include "measurements/measurement.h"
#include "run/histogram_loop.h"
#include "run/steps.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"

namespace Tessel {

namespace {

bool setUpHistogramming(RunRef &ref, HistogramLoop &loop)
{
    prepareDevice(ref);
    if (!initResult(ref) || !checkParams(ref)) return false;
    addStore(ref);
    if (!initStore(ref)) return false;
    loop.Size = (valueOf(ref.device, &DeviceConfig::ChansCfg).size() + 1) * ref.run->NumBins;
    if (!allocatePages(loop.Fetched, loop.Size)) return refuse(ref.device, "No memory for the histograms!");
    beginMeasuring(ref);
    return true;
}

// False, with an error in the log: it is an instrument that builds histograms, and nothing else.
bool canHistogram(RunRef &ref)
{
    if (ref.run->Request.Kind != MeasKind::Histogram) {
        reportDeviceError(ref.device, LogCategory::General,
                          "Device: Measurement not supported histogram mode! @{}", ref.device.ID);
        return false;
    }
    if (isInstrument(ref.device)) return true;
    ref.context.Description.StopReason = StopReason::DataXferFail;
    return notSupported(ref.device, "getHistogram");
}

void fetchHistograms(RunRef &ref, HistogramLoop &loop)
{
    if (!canHistogram(ref)) return;
    while (!isAborted(*ref.run) && ref.device.Index != -1 && !passHistogramLoop(ref, loop)) {
    }
}

void tearDownHistogramming(RunRef &ref)
{
    endInput(ref);
    if (LogLevel.Api) logInf(LogCategory::Progress, "MeasureHistory finished @{}", ref.device.ID);
    attempt(ref, [&ref] { takeElapsedTime(ref); });
    requestStop(*ref.run);
    endStages(ref);
    endMeasurement(ref);
}

} // namespace

void runHistogramming(RunRef &ref)
{
    HistogramLoop loop;
    attempt(ref, [&] {
        if (setUpHistogramming(ref, loop))
            fetchHistograms(ref, loop);
        else
            ref.context.Description.StopReason = StopReason::Error;
    });
    attempt(ref, [&] { stopHistogramming(ref, loop); }); // of a run that was aborted
    tearDownHistogramming(ref);
}

} // namespace Tessel
