#include "devices/lifecycle.h"

#include "devices/primitives.h"
#include "devices/result.h"
#include "log/log.h"
#include "log/text.h"
#include "manipulators/chain.h"

#include <fmt/format.h>

namespace Tessel {

using namespace std::chrono_literals;

std::shared_ptr<Run> liveRun(MeasContext &context)
{
    auto run = context.currentRun();
    if (!run) return nullptr;
    std::lock_guard lock(run->OverLock);
    return run->Over ? nullptr : run;
}

bool waitOver(Run &run, std::chrono::milliseconds patience)
{
    std::unique_lock lock(run.OverLock);
    return run.OverSignal.wait_for(lock, patience, [&run] { return run.Over; });
}

namespace {

// A stopped run hands on what it has read, for as long as that moves and a while at most. Its first events have
// to come through the whole chain first.
bool drains(Run &run)
{
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    uint64_t taken = 0;
    do {
        taken = run.Taken;
        if (waitOver(run, taken == 0 ? 1s : 500ms)) return true;
    } while (run.Taken != taken && std::chrono::steady_clock::now() < deadline);
    return false;
}

} // namespace

bool endRun(const DeviceRef &target)
{
    auto run = liveRun(*target.context);
    if (!run) return true;
    if (!run->Finished) {
        target.context->Description.StopReason = StopReason::Manual;
        target.context->StopByHost = true;
        target.context->StopRequested = true;
    }
    if (drains(*run)) return true;
    target.context->AbortRequested = true;
    if (waitOver(*run, 10s)) return true;
    logErr(LogCategory::General, "Device: The measurement can't be stopped, its memory is left to it! @{}",
           target.device->ID);
    return false;
}

bool openDevice(Device &device)
{
    if (device.Index < 0) return false;
    if (isFile(device)) return true;
    return notSupported(device, "openDevice");
}

DeviceRef pickDevice(const std::string &id)
{
    for (DeviceRef &candidate : allDevices())
        if ((id.empty() || candidate.device->ID == id) && openDevice(*candidate.device)) return candidate;
    return {library().NullDevice, library().NullMeasContext};
}

bool initDevice(const DeviceRef &target)
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "initDevice");
    ChainLocks locks(*target.context);
    rearrange(*target.device, *target.context);
    return target.device->IsInitialized;
}

void closeDevice(const DeviceRef &target)
{
    Device &device = *target.device;
    if (isFile(device)) {
        std::lock_guard noStart(target.context->StartLock);
        target.context->Closed = true; // from here on no run begins on it
    }
    const bool isFree = endRun(target);
    if (currentDevice().device->ID == device.ID) makeCurrent(library().NullDevice);
    if (!isFile(device)) return;

    device.IsOpen = false;
    device.IsInitialized = false;
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "Close File Device: {} {} {} @{}", device.TableIndex.load(),
               visible(device.FileDevicePath), static_cast<int32_t>(device.DeviceType), device.ID);
    if (isFree) stopManipulators(target, true, [] {});
    removeStages(target);
    removeDevice(target);
}

void closeDevices()
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "closeDevices");
    auto devices = allDevices();
    for (const DeviceRef &target : devices) target.context->StopRequested = true;
    for (auto target = devices.rbegin(); target != devices.rend(); ++target) closeDevice(*target);
}

} // namespace Tessel
