#include "measurements/clear.h"

#include "devices/primitives.h"
#include "manipulators/chain.h"
#include "measurements/results.h"

namespace Tessel {

void clearResult(const DeviceRef &target, Run &run)
{
    ChainLocks locks(*target.context);
    zeroResult(*target.context, run);
}

void clearMeasure(const DeviceRef &target)
{
    if (!target.device->IsInitialized) return;
    auto run = target.context->currentRun();
    if (!run || !hasResult(run->Request.Kind)) return;
    if (target.device->MeasMode == MeasMode::Histogramming) clearHistMem(*target.device);
    ChainLocks locks(*target.context);
    zeroResult(*target.context, *run);
    target.context->ClearRequested = true;
}

} // namespace Tessel
