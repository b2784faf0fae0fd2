// The memory of a chain for the length of a run, and the Store at its end, from which the measurement takes.
#pragma once

#include "records/refs.h"

#include <functional>

namespace Tessel {

// Clears the flags of every stage and gives it its memory. False: there is none.
bool allocateManipulators(const DeviceRef &target, const Run &run);

// Appends the Store, without memory yet. Every stage before it has its own.
std::shared_ptr<Manipulator> addManisStore(const DeviceRef &target, const Run &run);

// Gives the Store its memory. False: there is none.
bool allocateFinalStore(const DeviceRef &target, const Run &run);

// Logs that the Store goes.
void tellStoreGoes(const DeviceRef &target);

// Takes the Store off the chain. Nobody reads or writes it any more. Allocates nothing.
void removeManisStore(const DeviceRef &target);

} // namespace Tessel
