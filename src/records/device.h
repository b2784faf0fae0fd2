// `Device`: an instrument port, a recorded file or a remote device.
//
// Any thread may set and read its configuration. devices/locked_device.h says how.
#pragma once

#include "records/device_config.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

namespace Tessel {

// What a remote device can be asked for. remote/ hands it down with the device, and it stays.
struct RemoteCalls
{
    std::function<bool()> IsConnected;
    std::function<void(int32_t acqTimeMs)> StartMeasure;
    std::function<void(int32_t channel, int32_t level, int32_t edge)> SetInputEdgeTrig;
};

// The configuration, and what a copy of it must not have: the connection, and what a run writes.
struct Device : DeviceConfig
{
    uint64_t DataStart = 0; // file offset of the first record; constant after opening
    bool LoopFile = false;  // a replay starts again at the file's end; nothing sets it
    std::atomic<uint64_t> TableIndex{0};
    std::atomic<int32_t> Index{-1};       // negative: not usable
    std::atomic<int64_t> SyncPeriodPs{1}; // raw time to ps: T2 base resolution, T3 sync period
    std::atomic<bool> IsOpen{false};
    std::atomic<bool> IsInitialized{false};
    std::atomic<bool> IsConfigured{false};
    std::atomic<int32_t> Error{0}; // last result of the instrument's library
    // Held around every call into the instrument's library, from the first look at the configuration to what is
    // remembered. Who holds it may take it again.
    std::recursive_timed_mutex Mutex;
    // The configuration is written with Mutex and ConfigLock, and read with either of them: with the mutex it
    // stays as it is, with this lock nobody waits for the library. Held for a look or a change.
    mutable std::mutex ConfigLock;
    // session/ is told that the instrument was lost, so that it isn't the current device any more; constant.
    void (*Lost)(const Device &device) = nullptr;
    RemoteCalls Remote; // empty on any other device; constant
};

} // namespace Tessel
