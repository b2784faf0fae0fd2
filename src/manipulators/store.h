// The memory of a chain for the length of a run, and its final record, which the measurement reads.
#pragma once

#include "records/refs.h"

#include <functional>

namespace Tessel {

// Clears the flags of every stage and gives it its store. False: the memory is refused.
bool allocateManipulators(const DeviceRef &target);

// Appends the final record: between it and the first data `settle` passes, where the run gives out results.
std::shared_ptr<Manipulator> addManisStore(const DeviceRef &target, const Run &run);

// Gives the final record its store. False: the memory is refused.
bool allocateFinalStore(const DeviceRef &target);

// Takes the final record off. Nobody reads or writes it any more.
void removeManisStore(const DeviceRef &target);

} // namespace Tessel
