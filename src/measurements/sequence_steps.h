// What histograms check event by event: steps of a sequence, and a stop count. ManisLock is held.
#pragma once

#include "log/log.h"
#include "records/refs.h"
#include "threads/run_control.h"

#include <cstdint>
#include <utility>

namespace Tessel {

inline constexpr uint64_t originStep = 1'000'000'000; // ps; a time sequence begins at a multiple of it

// Events with no row are passed over.
inline bool isSkipped(uint8_t channel, uint64_t numChans)
{
    return (channel & ChannelCode::Special) || channel >= numChans;
}

class SequenceSteps
{
public:
    bool CountReached = false; // an element has reached SequenceCount

    // The first event of a batch sets the origin, unless it is set.
    void begin(uint64_t ps)
    {
        if (origin == 0) origin = ps / originStep * originStep;
    }

    // Whether the present step ends with an event at `ps`; then the next one begins.
    bool isDone(const RunRef &ref, uint64_t ps)
    {
        const MeasContext &context = ref.context;
        switch (context.SequenceMode) {
        case 1:
            if (ps - origin <= context.SequencePeriodPs) return false;
            origin += context.SequencePeriodPs;
            return true;
        case 2: return std::exchange(CountReached, false);
        default: return isAborted(*ref.run);
        }
    }

private:
    uint64_t origin = 0; // ps, of the present step of a time sequence
};

inline void stopForCount(RunRef &ref)
{
    ref.context.Description.StopReason = StopReason::Manual;
    requestStop(*ref.run);
}

inline void tellStopCount(const Device &device, uint8_t channel, uint32_t count)
{
    logDeb(LogCategory::Progress, "StopCount reached @ channel {} ({}) @{}", channel, count, device.ID);
}

} // namespace Tessel
