#include "measurements/results.h"

#include "log/log.h"
#include "manipulators/chain.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <limits>

namespace Tessel {

namespace {

bool refuse(const RunRef &run, const char *what)
{
    logErr(LogCategory::General, "Device: {} @{}", what, run.device().ID);
    return false;
}

// Rows x columns of counts at HistoData.
bool sizeCounts(RunRef &ref, uint64_t rows, uint64_t columns)
{
    Run &run = *ref.run;
    if (rows != 0 && columns > std::numeric_limits<ptrdiff_t>::max() / sizeof(uint32_t) / rows)
        return refuse(ref, "The result has too many bins!");
    run.HistoData = run.Request.HistoData;
    run.HistoSize = run.HistoData ? rows * columns : 0;
    std::fill_n(run.HistoData, run.HistoSize, 0u);
    return true;
}

} // namespace

bool hasResult(MeasKind kind)
{
    switch (kind) {
    case MeasKind::Histogram: return true;
    default: return false;
    }
}

bool sizeResult(RunRef &run)
{
    switch (run.run->Request.Kind) {
    case MeasKind::Histogram:
        return sizeCounts(run, numAllChans(run.device(), run.context()), run.device().NumBins);
    case MeasKind::ImportSource:
        return run.run->ImportBlock.allocate(streamRecords()) || refuse(run, "No memory for the import block!");
    default: return true;
    }
}

void giveOutResult(RunRef &run)
{
    switch (run.run->Request.Kind) {
    case MeasKind::Histogram: break; // counted into the caller's array
    default: break;
    }
}

void zeroResult(Device &, MeasContext &context, Run &run)
{
    for (const auto &record : context.Manis) record->ClearFlag = true;
    switch (run.Request.Kind) {
    case MeasKind::Histogram: std::fill_n(run.HistoData, run.HistoSize, 0u); break;
    default: break;
    }
}

bool checkParams(const RunRef &run)
{
    const Device &device = run.device();
    bool isT2 = device.MeasMode == MeasMode::T2;
    if (device.SyncPeriodPs < 1) return refuse(run, "A sync period or base resolution of 0 ps, can't measure!");
    if (device.MeasMode == MeasMode::T3 && !(device.Resolution >= 1))
        return refuse(run, "A resolution of 0 ps, can't measure!");
    switch (run.run->Request.Kind) {
    case MeasKind::Histogram:
        if (isT2 && run.context().Histogram.HistoBinWidth == 0)
            return refuse(run, "A histogram bin width of 0 ps, can't measure!");
        return true;
    default: return true;
    }
}

} // namespace Tessel
