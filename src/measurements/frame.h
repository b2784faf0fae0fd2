// The frame that all measurement threads share: take what has arrived in Store, count it, publish it, until the
// run's threads before it have ended and the store is empty.
//
// A measurement has:
//   name                                  of its thread, for the log
//   prepare(run)                          before the first batch
//   count(run, batch, numChans, manis)    with ManisLock, which it may let go and take again to publish
//   finish(run)                           after the last batch
// and where it has more to tell
//   tellStart(run)                        after the line that says that it has started
//   least(run)                            how many events it waits for, unless a batch ends; else one
#pragma once

#include "log/log.h"
#include "manipulators/chain.h"
#include "measurements/publish.h"
#include "records/refs.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "threads/run_control.h"
#include "threads/thread_name.h"

#include <new>

namespace Tessel {

struct EventBatch
{
    const uint64_t *Times;
    const uint8_t *Channels;
    uint64_t Count;
    bool Begins = false; // a batch as the stages know it, see Piece
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

// Waits for events in the final store, `least` of them or the end of a batch, and moves them to the empty
// batch. False: there are none and no more will come.
inline bool takeBatch(RunRef &ref, EventStore &batch, uint64_t least)
{
    drop(batch);
    auto last = lockLast(ref.context);
    if (!last.record) return false;
    Manipulator &store = *last.record;
    store.Changed.wait(last.lock, [&] {
        return store.Events.Count >= least || store.Events.EndsBatch ||
               hasReached(*ref.run, RunPhase::ConsumersEnd);
    });
    if (!hasContent(store.Events) || !hasArrays(store.Events)) return false;
    takeAll(store.Events, batch);
    last.lock.unlock();
    store.Changed.notify_all();
    noteTaken(*ref.run);
    return true;
}

template <class Measurement>
void countBatch(RunRef &ref, Measurement &measurement, const EventStore &batch, bool begins)
{
    Run &run = *ref.run;
    const uint64_t numChans = numAllChans(ref.device, ref.context); // a stage may have come during the run
    std::unique_lock manis(ref.context.ManisLock);
    measurement.count(ref, {batch.Times.get(), batch.Channels.get(), batch.Count, begins}, numChans, manis);
    manis.unlock();
    if (ref.context.SequenceMode != 0 || run.PublishesByBatch || run.NewData.exchange(true)) return;
    wake(run.Control);
}

// Of a recorded file.
inline void endBatch(RunRef &ref)
{
    Run &run = *ref.run;
    noteBatchDone(run);
    if (ref.context.SequenceMode != 0 || !run.PublishesByBatch) return;
    run.NewData = true;
    newDataStep(ref);
}

// How many events a measurement waits for, as long as no batch ends.
template <class Measurement>
uint64_t leastEvents(RunRef &ref, const Measurement &measurement)
{
    if constexpr (requires { measurement.least(ref); }) return measurement.least(ref);
    return 1;
}

// A batch of a recorded file comes in pieces, the last of which may be empty.
template <class Measurement>
void countAll(RunRef &ref, Measurement &measurement, EventStore &batch)
{
    const uint64_t least = leastEvents(ref, measurement);
    for (bool begins = true; takeBatch(ref, batch, least);) {
        if (batch.Count > 0) countBatch(ref, measurement, batch, begins);
        if (batch.EndsBatch) endBatch(ref);
        begins = batch.EndsBatch || (begins && batch.Count == 0) || !ref.run->Facts.MayWait;
    }
}

template <class Measurement>
void runMeasurement(RunRef &ref, Measurement &measurement)
{
    Run &run = *ref.run;
    EventStore batch;
    if (!allocate(batch, finalCapacity(ref.context))) throw std::bad_alloc();
    setHighWater(ref.context, streamRecords() / 2);
    measurement.prepare(ref); // may set another mark
    nameThread(ref.device.ID);
    waitFor(run.Control, [&run] { return hasReached(run, RunPhase::Measuring); });

    if (LogLevel.Api) logInf(LogCategory::Progress, "{} started @{}", measurement.name, ref.device.ID);
    if constexpr (requires { measurement.tellStart(ref); }) measurement.tellStart(ref);
    countAll(ref, measurement, batch);
    run.LastData = true;
    measurement.finish(ref);
    if (LogLevel.Api) logInf(LogCategory::Progress, "{} stopped @{}", measurement.name, ref.device.ID);
}

} // namespace Tessel
