#include "session/open_close.h"

#include "datafiles/file_device.h"
#include "devices/primitives.h"
#include "devices/result.h"
#include "log/log.h"
#include "log/text.h"
#include "manipulators/chain.h"
#include "run/end_run.h"
#include "settings/system_ini.h"
#include "threads/run_control.h"

#include <fmt/format.h>

namespace Tessel {

const DeviceLookUp deviceLookUp = {.Find = findDevice, .All = allDevices, .Initialise = initDevice};

bool openDevice(Device &device)
{
    if (device.Index < 0) return false;
    if (isFile(device)) return true;
    return notSupported(device, "openDevice");
}

DeviceRef pickDevice(const std::string &id)
{
    for (const DeviceRef &candidate : allDevices())
        if ((id.empty() || candidate->device.ID == id) && openDevice(candidate->device)) return candidate;
    return noDevice();
}

namespace {

// Hosts know it so: a file that can't be opened makes the current device an open one. "No device" stays as it
// is.
void setAfterFailedOpen(const DeviceRef &current)
{
    if (current == noDevice()) return;
    current->device.IsOpen = true;
    current->device.IsInitialized = true;
    current->device.Index = static_cast<int32_t>(current->device.TableIndex);
}

} // namespace

DeviceRef openFile(std::string_view path, uint64_t largestId)
{
    auto opened = std::make_shared<DeviceEntry>();
    if (!readTgxFile(path, opened->device, opened->context)) return noDevice();
    if (opened->device.ID.size() >= largestId) {
        logErr(LogCategory::General, "File: the id {} has no room in {} bytes", visible(opened->device.ID),
               largestId);
        return noDevice();
    }
    addDevice(opened);
    opened->device.IsOpen = true;
    opened->device.IsInitialized = true;
    opened->device.Index = static_cast<int32_t>(opened->device.TableIndex);
    if (LogLevel.DataFile)
        logInf(LogCategory::Progress, "OpenTGXFile: finished {} {}", opened->device.ID,
               opened->device.TableIndex.load());
    return opened;
}

DeviceRef getFileDevice(std::string_view path)
{
    DeviceRef opened = openFile(path, UINT64_MAX);
    if (opened != noDevice()) return opened;
    DeviceRef current = currentDevice();
    setAfterFailedOpen(current);
    return current;
}

bool initDevice(const DeviceRef &target)
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "initDevice");
    ChainLocks locks(target->context);
    rearrange(target->device, target->context);
    return target->device.IsInitialized;
}

void closeDevice(const DeviceRef &target)
{
    Device &device = target->device;
    if (isFile(device)) {
        std::lock_guard noStart(target->context.StartLock);
        target->context.Closed = true; // from here on no run begins on it
    }
    const bool isFree = endRun(target);
    if (currentDevice()->device.ID == device.ID) makeCurrent(noDevice());
    if (!isFile(device)) return;

    device.IsOpen = false;
    device.IsInitialized = false;
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "Close File Device: {} {} {} @{}", device.TableIndex.load(),
               visible(device.FileDevicePath), static_cast<int32_t>(device.DeviceType), device.ID);
    if (isFree) stopManipulators(target, true, waitLeft);
    removeStages(target);
    removeDevice(target);
}

void closeDevices()
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "closeDevices");
    auto devices = allDevices();
    for (const DeviceRef &target : devices)
        if (auto run = liveRun(target->context)) requestStop(*run);
    for (auto target = devices.rbegin(); target != devices.rend(); ++target) closeDevice(*target);
}

} // namespace Tessel
