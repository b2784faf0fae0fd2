// When and how new data are given out while a run goes on.
#pragma once

#include "measurements/run_ref.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace Tessel {

inline constexpr int64_t publishIntervalNs = 100'000'000; // of a recorded file

int64_t monotonicNs();

// Gives out what is new, and where a sequence waits for its host, waits until the host has taken it or the run
// is aborted. No lock is held meanwhile.
void newDataStep(RunRef &run);

// Gives out the result; in a sequence the next step starts from an empty one. `manis` holds ManisLock, lets go
// of it and takes it again.
void publish(RunRef &run, std::unique_lock<std::mutex> &manis);

// Runs the new-data step about once a millisecond until `finalRecord` is told to stop.
void CopyStoreThread(RunRef run, std::shared_ptr<Manipulator> finalRecord);

} // namespace Tessel
