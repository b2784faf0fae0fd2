// `LockedDevice`: the proof that a device's mutex is held.
#pragma once

#include "records/device.h"

#include <mutex>
#include <utility>

namespace Tessel {

// Holds the mutex to the end of the scope. `alreadyLocked`: the caller holds it.
struct LockedDevice
{
    explicit LockedDevice(Tessel::Device &locked, bool alreadyLocked = false) : device(locked)
    {
        if (!alreadyLocked) Lock = std::unique_lock(device.Mutex);
    }
    // With a lock that was tried for.
    LockedDevice(Tessel::Device &locked, std::unique_lock<std::timed_mutex> lock)
        : device(locked), Lock(std::move(lock))
    {
    }

    Tessel::Device &device;
    std::unique_lock<std::timed_mutex> Lock{};
};

} // namespace Tessel
