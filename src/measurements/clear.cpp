#include "measurements/clear.h"

#include "devices/primitives.h"
#include "manipulators/chain.h"

#include <algorithm>

namespace Tessel {

namespace {

// Every lock of the chain is held.
void zeroResult(const DeviceRef &target, Run &run)
{
    for (const auto &record : target.context->Manis) record->ClearFlag = true;
    std::fill_n(run.HistoData, run.HistoSize, 0u);
}

} // namespace

void clearResult(const DeviceRef &target, Run &run)
{
    ChainLocks locks(*target.context);
    if (run.HistoData) zeroResult(target, run);
}

void clearMeasure(const DeviceRef &target)
{
    if (!target.device->IsInitialized) return;
    auto run = target.context->currentRun();
    if (!run || run->Request.Kind != MeasKind::Histogram) return;
    if (target.device->MeasMode == MeasMode::Histogramming) clearHistMem(*target.device);
    ChainLocks locks(*target.context);
    if (!run->HistoData) return;
    zeroResult(target, *run);
    target.context->ClearRequested = true;
}

} // namespace Tessel
