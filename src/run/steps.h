// The steps of MeasureThread that a stream run and a histogramming run have in common.
#pragma once

#include "log/log.h"
#include "records/refs.h"
#include "run/watched_wait.h"

#include <atomic>
#include <exception>
#include <thread>

namespace Tessel {

// Logs the failure and aborts the run. No lock is held.
void failRun(const RunRef &ref, const char *what, const char *why) noexcept;

// Does a step. One that fails aborts the run; the steps after it are still done. False: it has failed.
template <class Step>
bool attempt(const RunRef &ref, Step step) noexcept
{
    try {
        step();
        return true;
    } catch (const std::exception &failure) {
        failRun(ref, "The measurement", failure.what());
        return false;
    }
}

// Starts a thread of the run. If it fails, the run is aborted, and nothing else.
template <class Body>
std::thread startThread(const RunRef &ref, const char *name, std::atomic<bool> &done, Body body)
{
    return std::thread([ref, name, &done, body]() mutable {
        try {
            body(ref);
        } catch (const std::exception &failure) {
            failRun(ref, name, failure.what());
        }
        done = true;
        wakeAll(ref.context, *ref.run);
    });
}
void joinWatched(RunRef &ref, std::thread &thread, const std::atomic<bool> &done);

// An instrument that has been closed: it isn't asked any more.
bool isLost(const RunRef &ref);

// Why the run ends. Always true: it does.
bool endWith(RunRef &ref, StopReason reason);
// The same for a flag of the instrument, with an error in the log; of several the last one stays the reason.
void tellFlag(RunRef &ref, StopReason reason, const char *text);

// Tells the instrument what starts and stops the run, of which the device remembers nothing, and takes rates
// and warnings into the description.
void prepareDevice(RunRef &ref);

// Empties the caller's result, also for a run that can't measure, so that no result of an earlier run stays.
// False: there can be no such result.
bool initResult(RunRef &ref);

// Appends `Store` to the chain, and starts the thread that publishes, where the run's kind has one.
void addStore(RunRef &ref);
// Gives `Store` its memory and makes what the run counts with.
bool initStore(RunRef &ref);
// From here on every stage takes part in the run.
void beginMeasuring(RunRef &ref);

// Nothing more is read. A run that never measured is aborted: no stage is to enter it now.
void endInput(RunRef &ref);
// How long the instrument has measured, once it has ended; its stop count is the device's again.
void takeElapsedTime(RunRef &ref);
// End the stages, then the measurement, and take `Store` off the chain. After both no thread of the run but
// this one is left.
void endStages(RunRef &ref);
void endMeasurement(RunRef &ref);

} // namespace Tessel
