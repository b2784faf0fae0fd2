// Histo2dThread: sorts pairs of events of a T2 or T3 run by two delays into the caller's array.
#include "measurements/histogram_2d.h"

#include "devices/result.h"
#include "measurements/block_turns.h"
#include "measurements/count_array.h"
#include "measurements/histogram_2d_count.h"
#include "measurements/sequence_steps.h"
#include "stream/rounding.h"

namespace Tessel {

namespace {

class Histogram2dMeasurement
{
public:
    const char *name = Histogram2d::Steps.ThreadName;

    explicit Histogram2dMeasurement(Histogram2d &ofRun) : counts(ofRun.Counts) {}

    void prepare(RunRef &run)
    {
        rules = {run.run->Params.Histo2d, truncated<uint64_t>(run.run->Facts.Resolution)};
        stopCount = run.run->Facts.StopCount;
        startChans = static_cast<uint8_t>(numAllChans(run.device, run.context));
        isT2 = run.run->Facts.Mode == MeasMode::T2;
    }

    void count(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis)
    {
        if (counts.Rows == 0) return; // no array: nothing to count into
        auto isQuiet = [this, numChans](uint8_t channel) { return isT2 && isSkipped(channel, numChans); };
        withTime(run.run->Facts, [&](const auto &time) {
            if (run.context.SequenceMode != 0)
                countSequence(run, batch, numChans, manis, time, isQuiet);
            else
                countInBlocks(run, batch, manis, isQuiet, [&](EventBatch block) {
                    if (stopCount != 0)
                        countToStop(run, block, numChans, time);
                    else
                        histogram2dCount(search, rules, time, block.Times, block.Channels, block.Count,
                                         numChans, counts.Data);
                });
        });
    }

    void finish(RunRef &) {}

private:
    template <class Time, class IsQuiet>
    void countSequence(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis,
                       const Time &time, IsQuiet isQuiet)
    {
        if (isT2 && batch.Begins) steps.begin(batch.Times[0]);
        countInSteps(run, batch, manis, isQuiet, [&](EventBatch event) {
            countToStop(run, event, numChans, time);
            return !isQuiet(*event.Channels) && steps.isDone(run, time.ps(*event.Times));
        });
    }

    // Event by event: a stop count or a sequence looks at each element counted.
    template <class Time>
    void countToStop(RunRef &run, EventBatch batch, uint64_t numChans, const Time &time)
    {
        for (uint64_t i = 0; i < batch.Count; ++i) {
            const uint8_t channel = batch.Channels[i];
            if (isSkipped(channel, numChans)) continue;
            if (const auto pair = nextPair(search, rules, time, batch.Times[i], channel))
                countPair(run, *pair, channel);
        }
    }

    // For a pair that counts nowhere element 0 is looked at.
    void countPair(RunRef &run, const Pair &pair, uint8_t channel)
    {
        const bool isCounted = stopCount == 0 || (!stopped && channel < startChans);
        // In T2 a stop count makes every pair one of the recovery case.
        const bool recovering = (isT2 && stopCount != 0) || isRecovering(rules.Params, pair);
        uint32_t *histo = counts.Data;
        uint64_t element = 0;
        if (isCounted) {
            const auto found = elementOf(rules.Params, pair, recovering);
            if (found) ++histo[*found];
            element = found.value_or(0);
        }
        const bool isStopTested = stopCount != 0 && !stopped && (isCounted || !isT2);
        if (isStopTested && histo[element] >= stopCount) stopAtCount(run, channel, histo[element]);
        if (histo[element] >= run.context.SequenceCount) steps.CountReached = true;
    }

    void stopAtCount(RunRef &run, uint8_t channel, uint32_t count)
    {
        stopped = true;
        stopForCount(run);
        tellStopCount(run.device, channel, count);
    }

    CountArray &counts;
    PairRules rules;
    PairSearch search;
    uint32_t stopCount = 0;
    uint8_t startChans = 0;
    bool isT2 = false;

    bool stopped = false; // an element has reached StopCount
    SequenceSteps steps;
};

void Histo2dThread(RunRef run, Histogram2d &result)
{
    Histogram2dMeasurement measurement(result);
    runMeasurement(run, measurement);
}

ResultShape histogram2dShape(const Run &run)
{
    return {run.Params.Histo2d.H2dNumBinsY, run.Params.Histo2d.H2dNumBinsX, sizeof(uint32_t)};
}

bool checkHistogram2d(const RunRef &run)
{
    const Histo2dParams &params = run.run->Params.Histo2d;
    if (!hasTimeScale(run)) return false;
    if (params.H2dBinWidthX == 0 || params.H2dBinWidthY == 0)
        return refuse(run.device, "A two-dimensional histogram with a bin width of 0 ps, can't measure!");
    if (params.H2dNumBinsX == 0 || params.H2dNumBinsY == 0)
        return refuse(run.device, "A two-dimensional histogram without bins, can't measure!");
    return true;
}

} // namespace

const MeasurementSteps<Histogram2d> Histogram2d::Steps = {
    .Shape = histogram2dShape,
    .Size = [](Run &, Histogram2d &result, const ResultShape &shape) { size(result.Counts, shape); },
    .Check = checkHistogram2d,
    .ThreadName = "Histo2dThread",
    .Thread = Histo2dThread,
    .Clear = [](Histogram2d &result) { clear(result.Counts); },
};

} // namespace Tessel
