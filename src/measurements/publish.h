// When and how new data are given out while a run goes on.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace Tessel {

inline constexpr int64_t publishIntervalNs = 100'000'000; // of a recorded file

// Gives out what is new, and where a sequence waits for its host, waits until the host has taken it or the run
// is aborted. No lock is held meanwhile.
void newDataStep(RunRef &run);

// Gives out the result; in a sequence the next step starts from an empty one. `manis` holds ManisLock, lets go
// of it and takes it again.
void publish(RunRef &run, std::unique_lock<std::mutex> &manis);

// Runs the new-data step when there is something new, about once a millisecond at most, until PublishingEnds.
void CopyStoreThread(RunRef run);

} // namespace Tessel
