#include "run/finished.h"

#include "threads/run_control.h"

#include <atomic>

namespace Tessel {

void writeFinished(uint8_t *finished, uint8_t value)
{
    if (finished) std::atomic_ref<uint8_t>(*finished).store(value, std::memory_order_release);
}

void finish(MeasContext &context, Run &run)
{
    writeFinished(run.Request.FinishedFlag, 1);
    advance(context, run, RunPhase::Finished);
}

} // namespace Tessel
