// `LockedDevice`: the proof that a device's mutex is held, and how its configuration is read and changed.
#pragma once

#include "records/device.h"

#include <mutex>
#include <utility>

namespace Tessel {

// Holds the mutex to the end of the scope.
struct LockedDevice
{
    explicit LockedDevice(Tessel::Device &locked) : device(locked), Lock(locked.Mutex) {}
    // With a lock that was tried for.
    LockedDevice(Tessel::Device &locked, std::unique_lock<std::recursive_timed_mutex> lock)
        : device(locked), Lock(std::move(lock))
    {
    }

    Tessel::Device &device;
    std::unique_lock<std::recursive_timed_mutex> Lock;
};

// Changes the configuration. `change` writes fields and does nothing else.
template <class Change>
void remember(LockedDevice &locked, Change change)
{
    std::lock_guard lock(locked.device.ConfigLock);
    change();
}

// The configuration and one field of it, for who doesn't hold the mutex.
inline DeviceConfig configOf(const Device &device)
{
    std::lock_guard lock(device.ConfigLock);
    return device;
}
template <class Value>
Value valueOf(const Device &device, Value DeviceConfig::*field)
{
    std::lock_guard lock(device.ConfigLock);
    return device.*field;
}

} // namespace Tessel
