// When and how new data are published while a run goes on.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace Tessel {

inline constexpr int64_t publishIntervalNs = 100'000'000; // of a recorded file

// Who publishes in the present mode: the measurement thread alone, or CopyStoreThread as well.
bool isPublishedByCounter(const MeasContext &context, const Run &run);

// Publishes what is new. If a sequence waits for its host, waits until the host has taken it or the run is
// aborted. No lock is held meanwhile.
void newDataStep(RunRef &run);

// Publishes the result; in a sequence the next step starts from an empty one. `manis` holds ManisLock, releases
// it and takes it again.
void publish(RunRef &run, std::unique_lock<std::mutex> &manis);

// Aborts a stopped run whose time is over, and says so. No lock is held.
void dropRest(RunRef &run);

// Runs the new-data step when there is something new, at most once a `Pace::publish`, until PublishingEnds.
void CopyStoreThread(RunRef run);

} // namespace Tessel
