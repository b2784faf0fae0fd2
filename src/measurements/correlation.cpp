// CorrThread: counts the pairs of two channels of a T2 or T3 stream; the new-data step makes curves of them.
#include "measurements/correlation.h"

#include "devices/result.h"
#include "measurements/correlation_count.h"
#include "measurements/correlation_result.h"
#include "measurements/correlation_setup.h"
#include "measurements/frame.h"
#include "measurements/g2_sides.h"
#include "measurements/lag_reach.h"
#include "measurements/sequence_steps.h"
#include "stream/times.h"

#include <algorithm>
#include <vector>

namespace Tessel {

namespace {

constexpr int64_t givenOutEveryNs = 1'000'000'000;
constexpr uint64_t eventsToLook = 1000;     // the clock is looked at where the count of events is a multiple
constexpr int64_t longBlockNs = 20'000'000; // what asks for a clear or an end waits no longer
constexpr int64_t longTurnNs = 100'000'000; // nor what waits for ManisLock
constexpr uint32_t mostThreads = 8;         // that count the lags of FCS and FFCS

class CorrelationMeasurement
{
public:
    const char *name = Correlation::Steps.ThreadName;

    CorrelationMeasurement(Correlation &ofRun, uint32_t threads)
        : result(ofRun), helpers(std::min(threads, mostThreads) - 1)
    {
    }

    void prepare(RunRef &run)
    {
        mostEvents = longestBlock = blockOf(run.run->Params.Correlation);
        times.resize(mostEvents);
        std::lock_guard lock(run.context.ManisLock);
        if (result.Work->Params.CorrMode != CorrMode::G2) result.Work->Helpers = &helpers;
    }

    void count(RunRef &run, EventBatch batch, uint64_t, std::unique_lock<std::mutex> &manis)
    {
        withTime(run.run->Facts, [&](const auto &time) {
            if (!hasOrigin) origin = time.ps(batch.Times[0]) / originStep * originStep;
            hasOrigin = true;
            countBatch(run, batch, manis, time);
        });
    }

    // Publishes the rest. The result stays with the device, the times needn't.
    void finish(RunRef &run)
    {
        run.run->NewData = true;
        newDataStep(run);
        std::lock_guard lock(run.context.ManisLock);
        keepEarlier(*result.Work);
        result.Work->Rings = {};
        result.Work->Helpers = nullptr;
    }

private:
    struct Step
    {
        uint64_t Events;
        bool IsDone; // of a sequence
    };

    // What was asked for before a block takes effect after its first event.
    template <class Time>
    void countBatch(RunRef &run, EventBatch batch, std::unique_lock<std::mutex> &manis, const Time &time)
    {
        Run &state = *run.run;
        int64_t turnStart = monotonicNs(), blockStart = turnStart;
        for (uint64_t at = 0; at < batch.Count;) {
            if (isTimeOver(state.Control)) drop(run, manis);
            const bool isAskedFor = isAborted(state) || state.ClearRequested;
            const uint64_t size = isAskedFor ? 1 : blockSize(batch.Count - at);
            const Step step = countBlock(run, timed(batch, at, size, time));
            at += step.Events;
            counted += step.Events;
            if (step.IsDone || isPublicationDue(run)) publish(run, manis);
            if (isAborted(state) || state.ClearRequested.exchange(false)) break;
            const int64_t now = monotonicNs();
            adaptBlocks(now - blockStart);
            blockStart = now;
            if (now - turnStart < longTurnNs) continue;
            letOthers(run, manis);
            turnStart = blockStart = monotonicNs();
        }
    }

    // Ends at a count at which the clock is looked at, if it reaches one.
    uint64_t blockSize(uint64_t left) const
    {
        const uint64_t longest = std::min({longestBlock, blockWithinReach(*result.Work), left}),
                       toLook = eventsToLook - counted % eventsToLook;
        return toLook >= longest ? longest : toLook + (longest - toLook) / eventsToLook * eventsToLook;
    }

    // Dense streams and long windows take long: then the next look comes after fewer events.
    void adaptBlocks(int64_t tookNs)
    {
        if (tookNs > longBlockNs) longestBlock = std::max<uint64_t>(longestBlock / 2, 1);
        if (tookNs < longBlockNs / 4) longestBlock = std::min(longestBlock * 2, mostEvents);
    }

    static void drop(RunRef &run, std::unique_lock<std::mutex> &manis)
    {
        manis.unlock();
        dropRest(run);
        manis.lock();
    }

    static void letOthers(RunRef &run, std::unique_lock<std::mutex> &manis)
    {
        noteTaken(*run.run); // the run moves
        manis.unlock();
        std::this_thread::yield();
        manis.lock();
    }

    template <class Time>
    TimedEvents timed(EventBatch batch, uint64_t at, uint64_t size, const Time &time)
    {
        if constexpr (!Time::isT3) return {batch.Times + at, batch.Channels + at, size};
        std::transform(batch.Times + at, batch.Times + at + size, times.begin(),
                       [&](uint64_t raw) { return time.ps(raw); });
        return {times.data(), batch.Channels + at, size};
    }

    // A block, or as much of it as belongs to the present step of a sequence.
    Step countBlock(RunRef &run, const TimedEvents &events)
    {
        MeasContext &context = run.context;
        CorrelationWork &work = *result.Work;
        Step step{events.Count, false};
        noteAtZero(work, events);
        switch (context.SequenceMode) {
        case 1: step = stepByTime(events, context.SequencePeriodPs); break;
        case 2:
            if (work.Params.CorrMode == CorrMode::G2) {
                step.Events = countG2Until(work, events, context.SequenceCount, step.IsDone);
                return step;
            }
            step = stepByCount(events, context.SequenceCount);
            break;
        default: break;
        }
        countWhole(work, events.first(step.Events));
        return step;
    }

    static void countWhole(CorrelationWork &work, const TimedEvents &events)
    {
        noteLagsPassed(work, events);
        countCorrelation(work, events);
    }

    Step stepByTime(const TimedEvents &events, uint64_t period)
    {
        const uint64_t *end = events.Times + events.Count;
        const uint64_t *last =
            std::find_if(events.Times, end, [&](uint64_t time) { return time - origin > period; });
        if (last == end) return {events.Count, false};
        origin += period;
        return {static_cast<uint64_t>(last - events.Times) + 1, true};
    }

    Step stepByCount(const TimedEvents &events, uint64_t period)
    {
        const uint64_t inStep = counted - countMark;
        const uint64_t left = inStep <= period ? period - inStep : 0; // one more ends the step
        if (left >= events.Count) return {events.Count, false};
        countMark += period;
        return {left + 1, true};
    }

    bool isPublicationDue(RunRef &run) const
    {
        if (run.context.SequenceMode != 0) return false;
        if (isAborted(*run.run)) return true;
        return counted % eventsToLook == 0 && monotonicNs() - run.run->LastPublish > givenOutEveryNs;
    }

    Correlation &result;
    std::vector<uint64_t> times; // ps, of a T3 block
    bool hasOrigin = false;
    uint64_t origin = 0;                       // ps, of the present step of a time sequence
    uint64_t counted = 0;                      // events, markers and overflow records included
    uint64_t countMark = 0;                    // events at the start of the present step of a count sequence
    uint64_t mostEvents = 0, longestBlock = 0; // of a block
    Team helpers;                              // count the lags of FCS and FFCS with the measurement thread
};

void CorrThread(RunRef run, Correlation &result)
{
    CorrelationMeasurement measurement(result, run.run->Threads);
    runMeasurement(run, measurement);
}

bool checkCorrelation(const RunRef &run)
{
    const CorrelationParams &params = run.run->Params.Correlation;
    if (!hasTimeScale(run)) return false;
    if (params.CorrMode == CorrMode::G2 && params.CorrBinWidth == 0)
        return refuse(run.device, "A correlation bin width of 0 ps, can't measure!");
    if (params.CorrMode != CorrMode::G2 && lagGridOf(run.run->Facts, params).Edges[0] == 0)
        return refuse(run.device, "A shortest lag of 0 ps, can't measure!");
    return true;
}

bool makeRows(RunRef &run, Correlation &result)
{
    result.Work = setUpCorrelation(run.run->Facts, run.run->Params.Correlation);
    result.Work->Control = &run.run->Control;
    return true;
}

void giveOutCorrelation(Run &, Correlation &result)
{
    if (result.Work) giveOutCurves(*result.Work, result.Curves);
}

void clearCurves(Correlation &result)
{
    if (!result.Work) return;
    clearCorrelation(*result.Work);
    if (result.Curves) std::fill_n(result.Curves, result.CurveSize, 0.0);
}

} // namespace

// Unlike counts, curves aren't emptied at the start: they stay as they are until the first event is counted.
const MeasurementSteps<Correlation> Correlation::Steps = {
    .Shape = [](const Run &run) { return curveShape(run.Facts, run.Params.Correlation); },
    .Size = [](Run &, Correlation &result,
               const ResultShape &shape) { result.CurveSize = shape.Rows * shape.Columns; },
    .Check = checkCorrelation,
    .Prepare = makeRows,
    .ThreadName = "CorrThread",
    .Thread = CorrThread,
    .Sides = g2Sides,
    .GiveOut = giveOutCorrelation,
    .Clear = clearCurves,
};

} // namespace Tessel
