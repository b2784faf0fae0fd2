// The memory of a chain for the length of a run, and its final record, which the measurement reads.
#pragma once

#include "api/library.h"

#include <functional>

namespace Tessel {

// Clears the flags of every stage and gives it its store. False: the memory is refused.
bool allocateManipulators(const DeviceRef &target);

// Starts the thread that gives out new data until the record's StopFlag is set.
using CopyStoreStarter = std::function<void(std::shared_ptr<Manipulator>)>;

// Appends the final record and starts that thread, where the run's kind has one.
void addManisStore(const DeviceRef &target, Run &run, const CopyStoreStarter &startCopyStore);

// Gives the final record its store. False: the memory is refused.
bool allocateFinalStore(const DeviceRef &target);

// Waits until the final record is empty, ends the thread that gives out new data, and takes the record off.
// `everyTurn` is called at each turn of a wait.
void removeManisStore(const DeviceRef &target, Run &run, const std::function<void()> &everyTurn);

} // namespace Tessel
