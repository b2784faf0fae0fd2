// TimeTraceThread: counts the stream of a T2 or T3 run into bins of time, a row a channel; the new-data step
// scrolls them into the caller's array.
#include "measurements/time_trace.h"

#include "measurements/block_turns.h"
#include "measurements/sequence_steps.h"
#include "measurements/threads.h"
#include "measurements/time_trace_count.h"

namespace Tessel {

namespace {

void tellFirstBin(Run &run)
{
    if (run.Request.TraceFirstBin) *run.Request.TraceFirstBin = run.TimeTrace->FirstBin;
}

class TimeTraceMeasurement
{
public:
    const char *name = "TimeTraceThread";

    void prepare(RunRef &) {}

    void count(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis)
    {
        TimeTraceWork &work = *run.run->TimeTrace;
        if (numChans > work.Rows) work.growTo(numChans);
        withTime(run.run->Facts, [&](const auto &time) {
            if (!hasOrigin) origin = time.ps(batch.Times[0]) / originStep * originStep;
            hasOrigin = true;
            auto countBlock = [&](EventBatch block) {
                timeTraceCount(work, time, block.Times, block.Channels, block.Count);
                tellFirstBin(*run.run);
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

    bool hasOrigin = false;
    uint64_t origin = 0;    // ps, of the present step of a time sequence
    uint64_t counted = 0;   // events, markers included
    uint64_t countMark = 0; // events at the start of the present step of a count sequence
};

} // namespace

bool makeTraceWork(RunRef &run)
{
    const TimeTraceParams &params = run.run->Params.TimeTrace;
    auto work = std::make_shared<TimeTraceWork>();
    work->BinWidth = traceBinWidth(params.TraceHistorySize, params.TraceNumBins);
    if (!work->allocate(run.run->NumRows, params.TraceNumBins)) return false;
    run.run->TimeTrace = work;
    return true;
}

void giveOutTimeTrace(RunRef &ref)
{
    Run &run = *ref.run;
    if (!run.TimeTrace) return;
    TimeTraceWork &work = *run.TimeTrace;
    const bool last = run.LastData.exchange(false);
    giveOutTrace(work, run.HistoData, run.HistoSize / work.NumBins, last);
    tellFirstBin(run);
}

void TimeTraceThread(RunRef run)
{
    TimeTraceMeasurement measurement;
    runMeasurement(run, measurement);
}

} // namespace Tessel
