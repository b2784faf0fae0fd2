#include "measurements/clear.h"

#include "devices/primitives.h"
#include "manipulators/chain.h"
#include "measurements/measurement.h"
#include "threads/run_control.h"

namespace Tessel {

namespace {

// Every lock of the chain is held.
void askStagesToClear(MeasContext &context)
{
    for (const auto &record : context.Manis) record->ClearFlag = true;
}

} // namespace

void clearResult(const DeviceRef &target, Run &run)
{
    const bool mayWait = run.Facts.MayWait;
    {
        ChainLocks locks(target->context);
        zeroResult(run);
        if (!mayWait) askStagesToClear(target->context);
    }
    if (!mayWait) wakeChain(target->context);
}

void clearMeasure(const DeviceRef &target)
{
    if (!target->device.IsInitialized) return;
    auto run = currentRun(target->context);
    if (!run || !hasResult(*run)) return;
    if (valueOf(target->device, &DeviceConfig::MeasMode) == MeasMode::Histogramming)
        clearHistMem(target->device, true);
    {
        ChainLocks locks(target->context);
        zeroResult(*run);
        askStagesToClear(target->context);
        run->ClearRequested = true;
    }
    wakeChain(target->context);
}

} // namespace Tessel
