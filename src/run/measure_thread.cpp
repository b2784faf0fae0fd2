#include "run/measure_thread.h"

#include "measurements/frame.h"
#include "run/finished.h"
#include "run/histogram_run.h"
#include "run/steps.h"
#include "run/stream_run.h"
#include "settings/system_ini.h"
#include "threads/thread_name.h"

namespace Tessel {

namespace {

void trace(const RunRef &ref, const char *text)
{
    if (LogLevel.Api) logInf(LogCategory::Progress, fmt::runtime(text), ref.device.ID);
}

} // namespace

void MeasureThread(RunRef ref)
{
    Run &run = *ref.run;
    trace(ref, "MeasureThread started @{}");
    nameThread(ref.device.ID);
    if (isStream(run.Facts.Mode))
        runStream(ref);
    else
        runHistogramming(ref);
    finish(ref.context, run);
    run.FillBuffer.reset();
    run.ReadBuffer.reset();
    run.ProcessBuffer.reset();
    trace(ref, "MeasureThread finished @{}");
    advance(ref.context, run, RunPhase::Over);
}

} // namespace Tessel
