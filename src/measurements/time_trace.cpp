// TimeTraceThread: counts the stream of a T2 or T3 run into bins of time, a row for each channel; the new-data
// step scrolls them into the caller's array.
#include "measurements/time_trace.h"

#include "devices/result.h"
#include "measurements/block_turns.h"
#include "measurements/count_array.h"
#include "measurements/sequence_steps.h"
#include "measurements/time_trace_sides.h"

namespace Tessel {

namespace {

class TimeTraceMeasurement
{
public:
    const char *name = TimeTrace::Steps.ThreadName;

    explicit TimeTraceMeasurement(TimeTrace &ofRun) : trace(ofRun) {}

    void prepare(RunRef &) {}

    void count(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis)
    {
        TimeTraceWork &work = trace.Window;
        if (numChans > work.Rows) work.growTo(numChans);
        withTime(run.run->Facts, [&](const auto &time) {
            if (!hasOrigin) origin = time.ps(batch.Times[0]) / originStep * originStep;
            hasOrigin = true;
            auto countBlock = [&](EventBatch block) {
                timeTraceCount(work, time, block.Times, block.Channels, block.Count);
                tellFirstBin(trace);
            };
            if (run.context.SequenceMode == 0)
                countInBlocks(run, batch, manis, isMarker, countBlock);
            else
                countInSteps(run, batch, manis, isMarker, [&](EventBatch event) {
                    ++counted;
                    countBlock(event);
                    return !isMarker(*event.Channels) && isStepDone(run, time.ps(*event.Times));
                });
        });
    }

    // The last bins reach the caller.
    void finish(RunRef &run)
    {
        run.run->NewData = true;
        newDataStep(run);
    }

private:
    bool isStepDone(const RunRef &ref, uint64_t timePs)
    {
        const MeasContext &context = ref.context;
        switch (context.SequenceMode) {
        case 1:
            if (timePs - origin <= context.SequencePeriodPs) return false;
            origin = timePs;
            logDeb(LogCategory::Progress, "5"); // hosts know this line
            return true;
        case 2:
            if (counted - countMark <= context.SequenceCount) return false;
            countMark += context.SequenceCount;
            return true;
        default: return isAborted(*ref.run);
        }
    }

    TimeTrace &trace;
    bool hasOrigin = false;
    uint64_t origin = 0;    // ps, of the present step of a time sequence
    uint64_t counted = 0;   // events, markers included
    uint64_t countMark = 0; // events at the start of the present step of a count sequence
};

void TimeTraceThread(RunRef run, TimeTrace &trace)
{
    TimeTraceMeasurement measurement(trace);
    runMeasurement(run, measurement);
}

void sizeTrace(Run &run, TimeTrace &trace, const ResultShape &shape)
{
    size(trace.Counts, shape);
    run.ChannelRows = &trace.Counts;
    run.PublishesByBatch = run.Facts.MayWait;
    tellFirstBin(trace);
}

bool checkTrace(const RunRef &run)
{
    const TimeTraceParams &params = run.run->Params.TimeTrace;
    if (!hasTimeScale(run)) return false;
    if (params.TraceNumBins == 0) return refuse(run.device, "A time trace without bins, can't measure!");
    if (traceBinWidth(params.TraceHistorySize, params.TraceNumBins) == 0)
        return refuse(run.device, "A time trace with a bin width of 0 ps, can't measure!");
    return true;
}

bool makeWindow(RunRef &run, TimeTrace &trace)
{
    const TimeTraceParams &params = run.run->Params.TimeTrace;
    TimeTraceWork window;
    window.BinWidth = traceBinWidth(params.TraceHistorySize, params.TraceNumBins);
    if (!window.allocate(run.run->NumRows, params.TraceNumBins))
        return refuse(run.device, "No memory for the time trace!");
    trace.Window = std::move(window);
    return true;
}

// Scrolls complete bins into the caller's array, at the end of the run the last bin as well, and writes the
// number of the window's first bin.
void scrollTrace(Run &run, TimeTrace &trace)
{
    if (trace.Window.NumBins == 0) return; // not made yet
    giveOutTrace(trace.Window, trace.Counts.Data, trace.Counts.Rows, run.LastData.exchange(false));
    tellFirstBin(trace);
}

} // namespace

const MeasurementSteps<TimeTrace> TimeTrace::Steps = {
    .Shape =
        [](const Run &run) {
            return ResultShape{run.NumRows, run.Params.TimeTrace.TraceNumBins, sizeof(uint32_t)};
        },
    .Size = sizeTrace,
    .Check = checkTrace,
    .Prepare = makeWindow,
    .ThreadName = "TimeTraceThread",
    .Thread = TimeTraceThread,
    .Sides = traceSides,
    .GiveOut = scrollTrace,
    .Clear = [](TimeTrace &trace) { clear(trace.Counts); },
};

} // namespace Tessel
