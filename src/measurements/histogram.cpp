// HistoThread: counts the stream of a T2 or T3 run into one histogram per channel, in the caller's array.
#include "measurements/histogram.h"

#include "devices/result.h"
#include "measurements/block_turns.h"
#include "measurements/count_array.h"
#include "measurements/histogram_count.h"
#include "measurements/histogram_sides.h"
#include "measurements/sequence_steps.h"
#include "stream/times.h"

#include <algorithm>

namespace Tessel {

namespace {

// What a batch is counted into; the array can change with the chain.
struct HistogramRows
{
    uint32_t *Histo;
    uint64_t NumBins;
    uint64_t Count; // never past the array's end
};

class HistogramMeasurement
{
public:
    const char *name = Histogram::Steps.ThreadName;

    explicit HistogramMeasurement(Histogram &ofRun) : result(ofRun) {}

    void prepare(RunRef &run)
    {
        stopCount = run.run->Facts.StopCount;
        startChans = static_cast<uint8_t>(numAllChans(run.device, run.context));
        isT2 = run.run->Facts.Mode == MeasMode::T2;
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
                    countBlock(run, rowsFor(numChans), block);
            });
    }

    void finish(RunRef &) {}

private:
    HistogramRows rowsFor(uint64_t numChans) const
    {
        return {result.Counts.Data, result.Counts.Columns, std::min(numChans, result.Counts.Rows)};
    }

    void countBlock(RunRef &run, const HistogramRows &rows, EventBatch block) const
    {
        if (isT2)
            countT2(block.Times, block.Channels, block.Count, rows.Histo,
                    {result.LastRefTime, run.run->Params.Histogram.HistoRefChan,
                     run.run->Params.Histogram.HistoBinWidth, rows.NumBins, rows.Count});
        else
            countT3(block.Times, block.Channels, block.Count, rows.Histo, rows.NumBins, rows.Count);
    }

    template <class IsQuiet>
    void countSequence(RunRef &run, EventBatch batch, uint64_t numChans, std::unique_lock<std::mutex> &manis,
                       IsQuiet isQuiet)
    {
        if (isT2 && batch.Begins) steps.begin(batch.Times[0]);
        const RawTime rawTime(run.run->Facts);
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
                countEvent(run, rowsFor(numChans), batch.Times[i], batch.Channels[i]);
    }

    void countEvent(RunRef &run, const HistogramRows &rows, uint64_t time, uint8_t channel)
    {
        const HistogramParams &params = run.run->Params.Histogram;
        uint64_t &lastRef = result.LastRefTime;
        if (!isT2)
            countBin(run, rows, channel, time & dtimeMask);
        else if (lastRef != 0)
            countBin(run, rows, channel, (time - lastRef) / params.HistoBinWidth);
        if (isT2 && channel == params.HistoRefChan) lastRef = time;
    }

    void countBin(RunRef &run, const HistogramRows &rows, uint8_t channel, uint64_t bin)
    {
        if (bin >= rows.NumBins || channel >= rows.Count) return;
        uint32_t &element = rows.Histo[rows.NumBins * channel + bin];
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

    Histogram &result;
    uint32_t stopCount = 0;
    uint8_t startChans = 0;
    bool isT2 = false;

    bool stopped = false; // a bin has reached StopCount
    SequenceSteps steps;
};

void HistoThread(RunRef run, Histogram &result)
{
    HistogramMeasurement measurement(result);
    runMeasurement(run, measurement);
}

void sizeHistogram(Run &run, Histogram &result, const ResultShape &shape)
{
    size(result.Counts, shape);
    run.ChannelRows = &result.Counts;
}

bool checkHistogram(const RunRef &run)
{
    if (!hasTimeScale(run)) return false;
    if (run.run->Facts.Mode == MeasMode::T2 && run.run->Params.Histogram.HistoBinWidth == 0)
        return refuse(run.device, "A histogram bin width of 0 ps, can't measure!");
    return true;
}

} // namespace

const MeasurementSteps<Histogram> Histogram::Steps = {
    .Shape =
        [](const Run &run) {
            return ResultShape{run.NumRows, run.NumBins, sizeof(uint32_t)};
        },
    .Size = sizeHistogram,
    .Check = checkHistogram,
    .ThreadName = "HistoThread",
    .Thread = HistoThread,
    .Sides = histogramSides,
    .Clear = [](Histogram &result) { clear(result.Counts); },
};

} // namespace Tessel
