#include "session/instruments.h"

#include "devices/enum_texts.h"
#include "devices/library_versions.h"
#include "devices/libs/loader.h"
#include "devices/lifecycle.h"
#include "log/log.h"
#include "session/tables.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

namespace Tessel {

namespace {

constexpr int32_t busy = -2; // somebody else has the instrument open

// An open device keeps its id, and so does one that a run still works on, or that is served.
void rename(const DeviceRef &target, std::string id)
{
    std::unique_lock noStart(target->context.StartLock, std::try_to_lock);
    if (!noStart || liveRun(target->context)) return;
    std::lock_guard noLink(target->context.Links.Lock);
    if (!target->context.Links.Server) setId(target->device, std::move(id));
}

bool openLocked(const DeviceRef &target, LockedDevice &locked, bool quiet)
{
    Device &device = target->device;
    const bool wasOpen = device.IsOpen;
    std::string serial;
    const bool isOpen = openInstrument(locked, serial, quiet);
    if (!isOpen && device.Error == busy)
        serial = fmt::format("{}_Port {} (busy)", libTypeText(device.LibType), device.Index.load());
    if (!wasOpen && !serial.empty()) rename(target, std::move(serial));
    return isOpen;
}

// By the system's clock, as the thread sanitizer of g++ 12 doesn't see a lock that waits by the steady one.
std::chrono::system_clock::time_point afterLibraryAnswers()
{
    return std::chrono::system_clock::now() + Pace::libraryAnswers;
}

// The device's lock; without it the device is in a call that doesn't come back.
std::unique_lock<std::recursive_timed_mutex> lockInTime(Device &device)
{
    std::unique_lock lock(device.Mutex, afterLibraryAnswers());
    if (!lock)
        logWrn(LogCategory::Device, "Device: The instrument doesn't answer, it is passed over! @{}", device.ID);
    return lock;
}

} // namespace

bool openInstrument(const DeviceRef &target, bool quiet)
{
    auto lock = lockInTime(target->device);
    if (!lock) return false;
    LockedDevice locked(target->device, std::move(lock));
    return openLocked(target, locked, quiet);
}

namespace {

// The close of a lost instrument reaches the table through the device.
void leaveCurrent(const Device &lost)
{
    if (currentDevice()->device.ID == lost.ID) makeCurrent(noDevice());
}

DeviceRef newInstrument(LibType type, int32_t port)
{
    auto target = std::make_shared<DeviceEntry>();
    Device &device = target->device;
    device.DeviceType = DeviceType::Instrument;
    device.LibType = type;
    device.Index = port;
    device.Lost = leaveCurrent;
    const bool hasNegativeLevels = type == LibType::SV40 || type == LibType::LM70 || type == LibType::CD90;
    if (hasNegativeLevels) device.SyncDiscrLvl = -std::abs(device.SyncDiscrLvl);
    return target;
}

// A scan leaves things as it found them.
void scanKnown(const DeviceRef &target)
{
    Device &device = target->device;
    auto lock = lockInTime(device);
    if (!lock) return;
    LockedDevice locked(device, std::move(lock));
    const bool wasOpen = device.IsOpen;
    if (!openLocked(target, locked, true)) return;
    if (device.Error == 0)
        logInf(LogCategory::Progress, "Known open Device {} found @{}", libTypeText(device.LibType), device.ID);
    if (!wasOpen) closeInstrument(locked);
}

void scanNew(const DeviceRef &target)
{
    Device &device = target->device;
    {
        LockedDevice locked(device);
        const bool isOpen = openLocked(target, locked, true);
        if (!isOpen && device.Error != busy) return; // nothing stands on this port
        if (device.Error == 0)
            logInf(LogCategory::Progress, "New Device {} found @{}", libTypeText(device.LibType), device.ID);
        if (device.Error == busy)
            logInf(LogCategory::Progress, "New busy Device {} found @{}", libTypeText(device.LibType),
                   device.ID);
        closeInstrument(locked);
    }
    addInstrument(target);
}

void scanPort(LibType type, int32_t port)
{
    const DeviceRef fresh = newInstrument(type, port);
    if (port == 0 && LogLevel.Api) {
        logInf(LogCategory::Progress, "Init Kest library {} @{}", libTypeText(type), fresh->device.ID);
        GetLibraryVersion(fresh->device);
    }
    if (const DeviceRef known = findInstrument(type, port))
        scanKnown(known);
    else
        scanNew(fresh);
}

struct Ports
{
    LibType Type;
    int32_t Count;
};
constexpr Ports scanned[] = {
    {LibType::ZP, 8}, {LibType::CD, 8}, {LibType::SV40, 4}, {LibType::LM70, 8}, {LibType::CD90, 8}};

} // namespace

void scanDevices()
{
    // One scan at a time: each looks whether an instrument is new.
    static std::timed_mutex &scanLock = *new std::timed_mutex;
    if (LogLevel.Device) logDev(LogCategory::Progress, "scanDevices");
    const std::unique_lock oneScan(scanLock, afterLibraryAnswers());
    if (!oneScan) return logWrn(LogCategory::Device, "Device: Another scan doesn't end, no scan!");
    for (const auto [type, count] : scanned) {
        if (!loadLibrary(*libraryOf(type))) continue;
        for (int32_t port = 0; port < count; ++port) scanPort(type, port);
    }
}

namespace {

// Where memory is refused, what goes wrong remains unsaid.
void closeNow(const DeviceRef &target) noexcept
{
    Device &device = target->device;
    try {
        // A thread inside the library doesn't keep the device open.
        LockedDevice locked(device, std::unique_lock(device.Mutex, std::try_to_lock));
        closeInstrument(locked);
    } catch (const std::exception &failure) {
        logErr(LogCategory::Device, "Device: closing failed: {} @{}", failure.what(), device.ID);
    }
}

// What a thread that closes and the one that waits for it share.
struct Closing
{
    std::mutex Lock;               // guards IsOver
    std::condition_variable Ended; // a promise would need memory to be given up
    bool IsOver = false;
};

// On a thread of its own, which keeps the device. Throws where there is no thread for it.
std::shared_ptr<Closing> startClosing(const DeviceRef &target)
{
    auto closing = std::make_shared<Closing>();
    std::thread([target, closing] {
        closeNow(target);
        const std::lock_guard lock(closing->Lock);
        closing->IsOver = true;
        closing->Ended.notify_all();
    }).detach();
    return closing;
}

} // namespace

// The library may never come back: the thread is waited for a limited time. Where there is no memory for one, a
// device that stays open would be worse.
void closeInTime(const DeviceRef &target, std::chrono::milliseconds patience)
{
    if (!target->device.IsOpen) return;
    std::shared_ptr<Closing> closing;
    try {
        closing = startClosing(target);
    } catch (const std::exception &) {
        return closeNow(target);
    }
    std::unique_lock lock(closing->Lock);
    if (!closing->Ended.wait_for(lock, patience, [&closing] { return closing->IsOver; }))
        logErr(LogCategory::Device, "Device: The instrument doesn't close, it is left to itself! @{}",
               target->device.ID);
}

} // namespace Tessel
