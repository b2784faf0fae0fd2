// The frame that all measurement threads share: take what has arrived in the final store, count it, give it
// out, until the run's threads before it have ended and the store is empty.
//
// A measurement has:
//   name                                  of its thread, for the log
//   prepare(run)                          before the first batch
//   count(run, batch, numChans, manis)    with ManisLock, which it may let go and take again to publish
//   finish(run)                           after the last batch
// and where it has more to tell
//   tellStart(run)                        behind the line that says that it has started
#pragma once

#include "devices/thread_name.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "measurements/publish.h"
#include "measurements/run_ref.h"
#include "settings/system_ini.h"

#include <chrono>
#include <new>
#include <thread>

namespace Tessel {

struct EventBatch
{
    const uint64_t *Times;
    const uint8_t *Channels;
    uint64_t Count;
};

inline bool isStream(MeasMode mode)
{
    return mode == MeasMode::T2 || mode == MeasMode::T3;
}

// Sets the mark from which the record before the final store holds its events.
inline void setHighWater(MeasContext &context, uint64_t highWater)
{
    if (auto last = lockLast(context); last.record) last.record->HighWater = highWater;
}

// Events that the final store takes, and so whoever exchanges arrays with it.
inline uint64_t finalCapacity(MeasContext &context)
{
    auto last = lockLast(context);
    return last.record ? last.record->Events.Capacity : 0;
}

// False: the run came to an end before it began to measure.
inline bool waitMeasuring(const MeasContext &context)
{
    using namespace std::chrono_literals;
    while (!context.Measuring) {
        if (context.ConsumersEnd) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

template <class Measurement>
void countBatch(RunRef &run, Measurement &measurement, const EventStore &batch)
{
    using namespace std::chrono_literals;
    MeasContext &context = run.context();
    uint64_t numChans = numAllChans(run.device(), context); // a stage may have come during the run
    std::unique_lock manis(context.ManisLock);
    if (isStream(run.device().MeasMode)) {
        measurement.count(run, {batch.Times.get(), batch.Channels.get(), batch.Count}, numChans, manis);
        if (context.SequenceMode == 0) context.NewData = true;
        manis.unlock();
        std::this_thread::yield();
    } else {
        manis.unlock();
        std::this_thread::sleep_for(1ms);
    }
}

template <class Measurement>
void runMeasurement(RunRef &run, Measurement &measurement)
{
    using namespace std::chrono_literals;
    MeasContext &context = run.context();
    EventStore batch;
    if (!batch.allocate(finalCapacity(context))) throw std::bad_alloc();
    setHighWater(context, streamRecords() / 2);
    measurement.prepare(run); // may set another mark
    nameThread(run.device());
    if (!waitMeasuring(context)) return;

    auto last = lockLast(context);
    if (last.record) last.record->StartedFlag = true;
    if (LogLevel.Api) logInf(LogCategory::Progress, "{} started @{}", measurement.name, run.device().ID);
    if constexpr (requires { measurement.tellStart(run); }) measurement.tellStart(run);
    while (last.record && !(context.ConsumersEnd && last.record->Events.Count == 0)) {
        batch.Count = 0;
        if (context.Measuring && last.record->Events.hasArrays()) takeAll(last.record->Events, batch);
        last.lock.unlock();
        if (batch.Count == 0) {
            std::this_thread::sleep_for(1ms);
        } else {
            ++run.run->Taken;
            countBatch(run, measurement, batch);
        }
        last = lockLast(context);
    }
    last = {};
    context.LastData = true;
    measurement.finish(run);
    if (LogLevel.Api) logInf(LogCategory::Progress, "{} stopped @{}", measurement.name, run.device().ID);
}

} // namespace Tessel
