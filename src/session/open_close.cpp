#include "session/open_close.h"

#include "datafiles/file_device.h"
#include "devices/primitives.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "run/end_run.h"
#include "session/instruments.h"
#include "session/links.h"
#include "settings/system_ini.h"
#include "threads/run_control.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace Tessel {

const DeviceLookUp deviceLookUp = {.Find = findDevice, .All = allDevices, .Initialise = initDevice};

namespace {

bool openDevice(const DeviceRef &target)
{
    if (target->device.Index < 0) return false;
    return isInstrument(target->device) ? openInstrument(target, true) : true;
}

} // namespace

DeviceRef pickDevice(const std::string &id)
{
    if (allDevices().empty()) scanDevices();
    for (const DeviceRef &candidate : allDevices())
        if ((id.empty() || candidate->device.ID == id) && openDevice(candidate)) return candidate;
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

// A file that has just come into the table.
DeviceRef asOpened(const DeviceRef &file)
{
    file->device.IsOpen = true;
    file->device.IsInitialized = true;
    file->device.Index = static_cast<int32_t>(file->device.TableIndex);
    if (LogLevel.DataFile)
        logInf(LogCategory::Progress, "OpenTGXFile: finished {} {}", file->device.ID,
               file->device.TableIndex.load());
    return file;
}

} // namespace

DeviceRef openFile(std::string_view path, uint64_t largestId)
{
    const auto opened = std::make_shared<DeviceEntry>();
    if (!readTgxFile(path, opened->device, opened->context, false)) return noDevice();
    if (opened->device.DataStart == 0)
        logErr(LogCategory::General, "File: {} is no recording: it has no header", path);
    if (addWithOwnId(opened, largestId)) return asOpened(opened);
    logErr(LogCategory::General, "File: the id {} has no room in {} bytes", opened->device.ID, largestId);
    return noDevice();
}

DeviceRef getFileDevice(std::string_view path)
{
    const auto opened = std::make_shared<DeviceEntry>();
    if (readTgxFile(path, opened->device, opened->context, true)) { // hosts know it so
        addDevice(opened);
        return asOpened(opened);
    }
    DeviceRef current = currentDevice();
    setAfterFailedOpen(current);
    return current;
}

bool initDevice(const DeviceRef &target, int32_t measMode, int32_t refSource)
{
    Device &device = target->device;
    if (isInstrument(device)) {
        if (!endRun(target)) return false;
        LockedDevice locked(device);
        remember(locked, [&] {
            device.MeasMode = static_cast<MeasMode>(measMode);
            device.RefSource = refSource;
        });
    }
    return initDevice(target);
}

namespace {

void leaveUninitialised(const DeviceRef &target)
{
    target->device.IsInitialized = false;
    for (auto &rate : target->context.CountRates) rate = 0;
}

} // namespace

bool initDevice(const DeviceRef &target)
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "initDevice");
    if (isInstrument(target->device) && endRun(target)) initInstrument(target);
    if (isRemote(target->device)) leaveUninitialised(target); // its server initialises it
    ChainLocks locks(target->context);
    rearrange(target->device, target->context);
    return target->device.IsInitialized;
}

namespace {

// No run begins on the file any more.
void refuseRuns(const DeviceRef &target)
{
    std::lock_guard noStart(target->context.StartLock);
    target->context.Closed = true;
}

void closeFile(const DeviceRef &target, bool isFree)
{
    Device &device = target->device;
    device.IsOpen = false;
    device.IsInitialized = false;
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "Close File Device: {} {} {} @{}", device.TableIndex.load(),
               device.FileDevicePath, static_cast<int32_t>(device.DeviceType), device.ID);
    if (isFree) stopManipulators(target, true, waitLeft);
    removeStages(target);
    removeDevice(target);
}

// A remote device stays as it is. `isFree`: no run works on it. The run of an instrument that isn't hangs in
// the library, and gets its end by the close, if at all.
void closeEnded(const DeviceRef &target, bool isFree)
{
    if (currentDevice()->device.ID == target->device.ID) makeCurrent(noDevice());
    if (isFile(target->device))
        closeFile(target, isFree);
    else if (isInstrument(target->device))
        closeInTime(target, isFree ? Pace::aborting : Pace::hungCloses);
}

// So the links of the first `count` devices end side by side. A remote device keeps its link as long as it is
// there.
void askFirst(size_t count, bool forGood)
{
    for (size_t i = 0; i < count; ++i) {
        const DeviceRef target = deviceAt(i);
        if (target != noDevice() && (forGood || !isRemote(target->device))) askLinks(target, forGood);
    }
}

// Those that hang have one time together.
void endFirstLinks(size_t count)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + Pace::aborting;
    askFirst(count, true);
    for (size_t i = 0; i < count; ++i)
        if (const DeviceRef target = deviceAt(i); target != noDevice())
            awaitLinks(target, std::max(duration_cast<milliseconds>(deadline - steady_clock::now()), 0ms));
}

void traceCloseDevices()
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "closeDevices");
}

// So the runs of the first `count` devices end side by side.
void stopFirst(size_t count)
{
    for (size_t i = 0; i < count; ++i)
        if (auto run = liveRun(deviceAt(i)->context)) requestStop(*run);
}

} // namespace

void closeDevice(const DeviceRef &target)
{
    if (!isRemote(target->device)) endLinks(target, isFile(target->device));
    if (isFile(target->device)) refuseRuns(target);
    closeEnded(target, endRun(target));
}

void closeDevices()
{
    traceCloseDevices();
    size_t left = deviceCount();
    askFirst(left, false);
    stopFirst(left);
    while (left-- > 0)
        if (const DeviceRef target = deviceAt(left); target != noDevice()) closeDevice(target);
}

namespace {

void endWork(const DeviceRef &target, std::chrono::milliseconds patience)
{
    if (isFile(target->device)) refuseRuns(target);
    if (endRun(target, patience)) stopManipulators(target, true, waitLeft);
    removeStages(target);
}

// A file that another thread opens meanwhile has its turn in the next round.
void closeIfEnded(const DeviceRef &target)
{
    if (isFile(target->device) && !target->context.Closed) return;
    closeEnded(target, !liveRun(target->context));
}

// The devices stay in the table until they are closed, so nothing is allocated. Runs that hang have one time
// together.
void closeAllThere()
{
    using namespace std::chrono;
    size_t left = deviceCount();
    endFirstLinks(left);
    const auto deadline = steady_clock::now() + Pace::aborting - Pace::firstBatch; // which comes before it
    const auto patience = [&] {
        return std::max<milliseconds>(duration_cast<milliseconds>(deadline - steady_clock::now()),
                                      Pace::hungCloses);
    };
    stopFirst(left);
    for (size_t i = 0; i < left; ++i)
        if (const DeviceRef target = deviceAt(i); target != noDevice()) endWork(target, patience());
    endRun(noDevice());
    removeStages(noDevice());
    traceCloseDevices();
    while (left-- > 0)
        if (const DeviceRef target = deviceAt(left); target != noDevice()) closeIfEnded(target);
}

} // namespace

void closeForGood()
{
    do closeAllThere();
    while (!removeInstruments());
}

} // namespace Tessel
