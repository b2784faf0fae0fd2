// HistoThread: counts the stream of a T2 or T3 run into one histogram per channel, in the caller's array.
#include "measurements/block_turns.h"
#include "measurements/histogram_count.h"
#include "measurements/sequence_steps.h"
#include "measurements/threads.h"
#include "stream/times.h"

#include <algorithm>

namespace Tessel {

namespace {

// What a batch is counted by; the result's shape can change with the chain.
struct HistogramShape
{
    uint32_t *Histo;
    uint64_t NumBins;
    uint64_t Rows; // never past the array's end
};

class HistogramMeasurement
{
public:
    const char *name = "HistoThread";

    void prepare(RunRef &run)
    {
        stopCount = run.run->Facts.StopCount;
        startChans = static_cast<uint8_t>(numAllChans(run.device, run.context));
        isT2 = run.run->Facts.Mode == MeasMode::T2;
        rawTime = RawTime(run.run->Facts);
    }

    void count(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis)
    {
        auto isQuiet = [this, numChans](uint8_t channel) { return isT2 && isSkipped(channel, numChans); };
        if (run.context.SequenceMode != 0)
            countSequence(run, batch, numChans, manis, isQuiet);
        else
            countInBlocks(run, batch, manis, isQuiet, [&](EventBatch block) {
                if (stopCount != 0)
                    countEvents(run, block, numChans);
                else
                    countBlock(run, shapeOf(run, numChans), block);
            });
    }

    void finish(RunRef &) {}

private:
    static HistogramShape shapeOf(RunRef &run, uint64_t numChans)
    {
        uint64_t numBins = run.run->NumBins;
        uint64_t rows = numBins && run.run->HistoData ? run.run->HistoSize / numBins : 0;
        return {run.run->HistoData, numBins, std::min(numChans, rows)};
    }

    void countBlock(RunRef &run, const HistogramShape &shape, EventBatch block) const
    {
        if (isT2)
            countT2(block.Times, block.Channels, block.Count, shape.Histo,
                    {run.run->LastRefTime, run.run->Params.Histogram.HistoRefChan,
                     run.run->Params.Histogram.HistoBinWidth, shape.NumBins, shape.Rows});
        else
            countT3(block.Times, block.Channels, block.Count, shape.Histo, shape.NumBins, shape.Rows);
    }

    template <class IsQuiet>
    void countSequence(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis,
                       IsQuiet isQuiet)
    {
        if (isT2) steps.begin(batch.Times[0]);
        countInSteps(run, batch, manis, isQuiet, [&](EventBatch event) {
            countEvents(run, event, numChans);
            return !isQuiet(*event.Channels) && steps.isDone(run, rawTime.ps(*event.Times));
        });
    }

    // Event by event: a sequence or a stop count looks at each.
    void countEvents(RunRef &run, EventBatch batch, uint64_t numChans)
    {
        for (uint64_t i = 0; i < batch.Count; ++i)
            if (!isSkipped(batch.Channels[i], numChans))
                countEvent(run, shapeOf(run, numChans), batch.Times[i], batch.Channels[i]);
    }

    void countEvent(RunRef &run, const HistogramShape &shape, uint64_t time, uint8_t channel)
    {
        const HistogramParams &params = run.run->Params.Histogram;
        uint64_t &lastRef = run.run->LastRefTime;
        if (!isT2)
            countBin(run, shape, channel, time & dtimeMask);
        else if (lastRef != 0)
            countBin(run, shape, channel, (time - lastRef) / params.HistoBinWidth);
        if (isT2 && channel == params.HistoRefChan) lastRef = time;
    }

    void countBin(RunRef &run, const HistogramShape &shape, uint8_t channel, uint64_t bin)
    {
        if (bin >= shape.NumBins || channel >= shape.Rows) return;
        uint32_t &element = shape.Histo[shape.NumBins * channel + bin];
        // A T2 channel that came during the run doesn't count under a stop count; a T3 channel does.
        if (stopCount == 0)
            ++element;
        else if (!stopped && (!isT2 || channel < startChans) && ++element >= stopCount)
            stopAtCount(run, channel, element);
        if (element >= run.context.SequenceCount) steps.CountReached = true;
    }

    void stopAtCount(RunRef &run, uint8_t channel, uint32_t count)
    {
        stopped = true;
        stopForCount(run);
        if (isT2) tellStopCount(run.device, channel, count);
    }

    uint32_t stopCount = 0;
    uint8_t startChans = 0;
    bool isT2 = false;
    RawTime rawTime;

    bool stopped = false; // a bin has reached StopCount
    SequenceSteps steps;
};

} // namespace

void HistoThread(RunRef run)
{
    HistogramMeasurement measurement;
    runMeasurement(run, measurement);
}

} // namespace Tessel
