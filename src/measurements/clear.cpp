#include "measurements/clear.h"

#include "devices/primitives.h"
#include "manipulators/chain.h"
#include "measurements/measurement.h"
#include "threads/run_control.h"

namespace Tessel {

void clearResult(const DeviceRef &target, Run &run)
{
    {
        ChainLocks locks(target->context);
        zeroResult(target->context, run);
    }
    wakeChain(target->context);
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
        zeroResult(target->context, *run);
        run->ClearRequested = true;
    }
    wakeChain(target->context);
}

} // namespace Tessel
