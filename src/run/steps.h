// The steps that a stream run and a histogramming run have in common, for MeasureThread.
#pragma once

#include "log/log.h"
#include "records/refs.h"
#include "run/watched_wait.h"

#include <atomic>
#include <exception>
#include <thread>

namespace Tessel {

// Tells the log and aborts the run. No lock is held.
void failRun(const RunRef &ref, const char *what, const char *why) noexcept;

// A step that fails aborts the run and leaves the next one to be done. False: it has failed.
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

// A thread of the run that fails takes the run with it, and nothing else.
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

void decideMeasControl(RunRef &ref);

// Empties the caller's result, also for a run that can't measure: the host finds no result of the run before.
// False: there can be no such result.
bool initResult(RunRef &ref);

// Adds the final record and starts the thread that gives out new data, where the run's kind has one.
void addStore(RunRef &ref);
// Gives the final record its memory and makes what the run counts with.
bool initStore(RunRef &ref);
// From here on every stage takes part in the run.
void beginMeasuring(RunRef &ref);

// Stops the stages, ends the measurement and takes the final record off. In the end no thread of the run but
// this one is left.
void endStages(RunRef &ref);
void endMeasurement(RunRef &ref);

} // namespace Tessel
