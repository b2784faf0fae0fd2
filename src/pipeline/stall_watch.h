// Looks after a run that the host has stopped: when its consumer takes nothing for some seconds, the run is
// aborted, so that every wait for it ends. Used by MeasureThread at each turn of its waits.
#pragma once

#include "log/log.h"
#include "measurements/run_ref.h"

#include <chrono>

namespace Tessel {

class StallWatch
{
public:
    explicit StallWatch(const RunRef &watched) : ref(watched) {}

    void turn()
    {
        MeasContext &context = ref.context();
        if (!context.StopByHost || context.AbortRequested) return;
        auto now = std::chrono::steady_clock::now();
        uint64_t taken = ref.run->Taken;
        if (!watching || taken != lastTaken) {
            watching = true;
            lastTaken = taken;
            since = now;
        } else if (now - since > patience) {
            logWrn(LogCategory::General,
                   "Device: Nobody takes the data of a stopped measurement, the rest is dropped! @{}",
                   ref.device().ID);
            context.AbortRequested = true;
        }
    }

private:
    static constexpr std::chrono::seconds patience{5};

    const RunRef &ref;
    bool watching = false;
    uint64_t lastTaken = 0;
    std::chrono::steady_clock::time_point since;
};

} // namespace Tessel
