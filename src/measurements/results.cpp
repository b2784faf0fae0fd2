#include "measurements/results.h"

#include "devices/result.h"
#include "manipulators/chain.h"
#include "measurements/correlation_result.h"
#include "measurements/correlation_setup.h"
#include "measurements/threads.h"
#include "measurements/time_trace.h"
#include "measurements/time_trace_count.h"
#include "settings/system_ini.h"

#include <algorithm>

namespace Tessel {

namespace {

constexpr uint64_t largestResult = uint64_t{1} << 31; // counts, 8 GiB: more is a mistake of the caller's

struct Shape
{
    uint64_t Rows, Columns;

    bool isSensible() const { return Rows == 0 || Columns <= largestResult / Rows; }
};

// Of the counts at HistoData.
Shape shapeOf(const Run &run)
{
    switch (run.Request.Kind) {
    case MeasKind::Histogram: return {run.NumRows, run.NumBins};
    case MeasKind::Histo2d: return {run.Params.Histo2d.H2dNumBinsY, run.Params.Histo2d.H2dNumBinsX};
    case MeasKind::TimeTrace: return {run.NumRows, run.Params.TimeTrace.TraceNumBins};
    default: return {0, 0};
    }
}

} // namespace

bool hasResult(MeasKind kind)
{
    switch (kind) {
    case MeasKind::Histogram:
    case MeasKind::Histo2d:
    case MeasKind::TimeTrace:
    case MeasKind::Correlation: return true;
    default: return false;
    }
}

MeasurementThread threadOf(MeasKind kind)
{
    switch (kind) {
    case MeasKind::Histogram: return {"HistoThread", HistoThread};
    case MeasKind::Correlation: return {"CorrThread", CorrThread};
    case MeasKind::Histo2d: return {"Histo2dThread", Histo2dThread};
    case MeasKind::TimeTrace: return {"TimeTraceThread", TimeTraceThread};
    case MeasKind::Unfold:
    case MeasKind::ImportSource: return {"UnfoldThread", UnfoldThread};
    case MeasKind::None:
    case MeasKind::Raw: break;
    }
    return {};
}

bool sizeResult(RunRef &ref)
{
    Run &run = *ref.run;
    const Shape shape = shapeOf(run);
    if (!shape.isSensible()) return refuse(ref.device, "The result has too many bins!");
    run.HistoData = run.Request.HistoData;
    run.HistoSize = run.HistoData ? shape.Rows * shape.Columns : 0;
    std::fill_n(run.HistoData, run.HistoSize, 0u);
    if (run.Request.TraceFirstBin) *run.Request.TraceFirstBin = 0;
    return true;
}

bool makeWork(RunRef &run)
{
    switch (run.run->Request.Kind) {
    case MeasKind::TimeTrace: return makeTraceWork(run) || refuse(run.device, "No memory for the time trace!");
    case MeasKind::ImportSource:
        return allocate(run.run->ImportBlock, streamRecords()) ||
               refuse(run.device, "No memory for the import block!");
    case MeasKind::Correlation:
        run.run->Correlation = setUpCorrelation(run.run->Facts, run.run->Params.Correlation);
        return true;
    default: return true;
    }
}

void giveOutResult(RunRef &run)
{
    switch (run.run->Request.Kind) {
    case MeasKind::Histogram:
    case MeasKind::Histo2d: break; // counted into the caller's array
    case MeasKind::TimeTrace: giveOutTimeTrace(run); break;
    case MeasKind::Correlation:
        if (run.run->Correlation) giveOutCurves(*run.run->Correlation, run.run->Request.CorrResult);
        break;
    default: break;
    }
}

void zeroResult(MeasContext &context, Run &run)
{
    for (const auto &record : context.Manis) record->ClearFlag = true;
    switch (run.Request.Kind) {
    case MeasKind::Histogram:
    case MeasKind::Histo2d:
    case MeasKind::TimeTrace: std::fill_n(run.HistoData, run.HistoSize, 0u); break;
    case MeasKind::Correlation:
        if (run.Correlation) clearCorrelation(*run.Correlation, run.Request.CorrResult);
        break;
    default: break;
    }
}

namespace {

bool checkHistogram2d(const RunRef &run)
{
    const Histo2dParams &params = run.run->Params.Histo2d;
    if (params.H2dBinWidthX == 0 || params.H2dBinWidthY == 0)
        return refuse(run.device, "A two-dimensional histogram with a bin width of 0 ps, can't measure!");
    if (params.H2dNumBinsX == 0 || params.H2dNumBinsY == 0)
        return refuse(run.device, "A two-dimensional histogram without bins, can't measure!");
    return true;
}

bool checkTrace(const RunRef &run)
{
    const TimeTraceParams &params = run.run->Params.TimeTrace;
    if (params.TraceNumBins == 0) return refuse(run.device, "A time trace without bins, can't measure!");
    if (traceBinWidth(params.TraceHistorySize, params.TraceNumBins) == 0)
        return refuse(run.device, "A time trace with a bin width of 0 ps, can't measure!");
    return true;
}

bool checkCorrelation(const RunRef &run)
{
    const CorrelationParams &params = run.run->Params.Correlation;
    if (params.CorrMode == CorrMode::G2 && params.CorrBinWidth == 0)
        return refuse(run.device, "A correlation bin width of 0 ps, can't measure!");
    if (params.CorrMode != CorrMode::G2 && lagGridOf(run.run->Facts, params).Edges[0] == 0)
        return refuse(run.device, "A shortest lag of 0 ps, can't measure!");
    return true;
}

} // namespace

bool checkParams(const RunRef &run)
{
    const StreamFacts &facts = run.run->Facts;
    const bool isT2 = facts.Mode == MeasMode::T2;
    if (run.run->Request.Kind == MeasKind::Raw) return true; // words as they stand need no scale of time
    if (facts.SyncPeriodPs < 1)
        return refuse(run.device, "A sync period or base resolution of 0 ps, can't measure!");
    if (facts.Mode == MeasMode::T3 && !(facts.Resolution >= 1))
        return refuse(run.device, "A resolution of 0 ps, can't measure!");
    switch (run.run->Request.Kind) {
    case MeasKind::Histogram:
        if (isT2 && run.run->Params.Histogram.HistoBinWidth == 0)
            return refuse(run.device, "A histogram bin width of 0 ps, can't measure!");
        return true;
    case MeasKind::Histo2d: return checkHistogram2d(run);
    case MeasKind::TimeTrace: return checkTrace(run);
    case MeasKind::Correlation: return checkCorrelation(run);
    default: return true;
    }
}

} // namespace Tessel
