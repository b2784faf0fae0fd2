#include "devices/lifecycle.h"

#include "api/exports.h"
#include "config/device_json.h"
#include "datafiles/file_device.h"
#include "devices/primitives.h"
#include "log/text.h"
#include "manipulators/chain.h"
#include "settings/system_ini.h"

#include <fmt/format.h>

#include <algorithm>

using namespace Tessel;

namespace {

constexpr TextRule deviceIdsRule = {8192, "Device string is to long!", "No device connected!", true};

void traceApi(std::string_view text)
{
    if (LogLevel.Api) logInf(LogCategory::Progress, "{}", text);
}

void traceDevice(std::string_view text)
{
    if (LogLevel.Device) logDev(LogCategory::Progress, "{}", text);
}

DeviceRef nullDevice()
{
    return {library().NullDevice, library().NullMeasContext};
}

// False: a file was opened meanwhile.
bool forgetDevices()
{
    Library &lib = library();
    std::lock_guard lock(lib.TablesLock);
    if (std::any_of(lib.DeviceTable.begin(), lib.DeviceTable.end(),
                    [](const auto &device) { return isFile(*device); }))
        return false;
    lib.DeviceTable.clear();
    lib.MeasContextTable.clear();
    lib.CurrentDevice = lib.NullDevice;
    return true;
}

void closeAll()
{
    do {
        for (const DeviceRef &target : allDevices()) {
            if (endRun(target)) stopManipulators(target, true, [] {});
            removeStages(target);
        }
        endRun(nullDevice());
        removeStages(nullDevice());
        closeDevices();
    } while (!forgetDevices());
}

void restart()
{
    logWrn(LogCategory::General, "API already initialized! Exiting..");
    closeAll();
    traceApi("exit API");
    stopLog();
}

void resetNullDevice()
{
    DeviceRef null = nullDevice();
    endRun(null);
    removeStages(null);
    null.device->IsOpen = false;
    null.device->IsInitialized = false;
    null.device->Index = -1;
    makeCurrent(null.device);
}

void start(const std::string &iniPath)
{
    if (!allDevices().empty()) restart();
    endRun(nullDevice()); // settings don't change under a run
    loadSettingsIni(iniPath);
    startLog(settings().LogFile, settings().LogConsole, settings().DataPath + "\\Logs", programName,
             versionString());
    loadSettingsIni(iniPath); // again: now its trace is kept
    traceApi(fmt::format("API loadSettingsIni {}", visible(iniPath)));
    traceApi(fmt::format("Init {}", versionString()));
    resetNullDevice();
}

// The library starts and stops on one thread at a time.
std::mutex &startStopLock()
{
    static std::mutex &lock = *new std::mutex;
    return lock;
}

} // namespace

bool initAPI(const char *systemIniPath)
{
    return guarded("initAPI", true, [&] {
        std::lock_guard oneAtATime(startStopLock());
        start(std::string(textOf(systemIniPath)));
        return true;
    });
}

void exitAPI(void)
{
    guarded("exitAPI", [] {
        std::lock_guard oneAtATime(startStopLock());
        guarded("exitAPI", [] {
            traceApi("API exit");
            closeAll();
            traceApi("exit API");
            traceApi("API exited");
        });
        stopLog(); // in every case
    });
}

bool getDeviceIDs(char *buffer)
{
    return guarded("getDeviceIDs", false, [&] {
        traceApi("API getDeviceIDs");
        if (LogLevel.Config) logInf(LogCategory::Progress, "stringifyDeviceIDs");
        std::string text = stringifyDeviceIDs();
        traceApi(fmt::format("API getDeviceIDs {} {}", text, text.size()));
        return handOut(text, buffer, deviceIdsRule);
    });
}

bool getDevice(char *id)
{
    return guarded("getDevice", false, [&] {
        std::string wanted(textOf(id));
        traceApi(fmt::format("API getDevice \"{}\"", visible(wanted)));
        DeviceRef chosen = pickDevice(wanted);
        makeCurrent(chosen.device);
        if (chosen.device == library().NullDevice) return false;
        traceDevice(fmt::format("getDevice: \"{}\" \"{}\"", wanted, chosen.device->ID));
        if (!chosen.device->IsOpen) return false;
        traceApi(fmt::format("API getDevice \"{}\"", chosen.device->ID));
        copyText(chosen.device->ID, id);
        return true;
    });
}

bool getFileDevice(char *path)
{
    return guarded("getFileDevice", false, [&] {
        auto device = std::make_shared<Device>();
        auto context = std::make_shared<MeasContext>();
        if (readTgxFile(normalPath(textOf(path)), *device, *context)) {
            addDevice(device, context);
            makeCurrent(device);
            if (LogLevel.DataFile)
                logInf(LogCategory::Progress, "OpenTGXFile: finished {} {}", device->ID,
                       device->TableIndex.load());
        } else { // leaves the device that was current: the caller tells by the id
            device = currentDevice().device;
        }
        device->IsOpen = true;
        device->IsInitialized = true;
        device->Index = static_cast<int32_t>(device->TableIndex);
        traceApi(fmt::format("API getDevice \"{}\"", device->ID));
        copyText(device->ID, path);
        return true;
    });
}

bool initDevice(int32_t measMode, int32_t refSource)
{
    return guarded("initDevice", false, [&] {
        DeviceRef target = currentDevice(); // a recorded file keeps its own mode and clock
        traceApi(fmt::format("API initDevice \"{}\" {} {}", target.device->ID, measMode, refSource));
        return Tessel::initDevice(target);
    });
}

void closeDevice(uint8_t all)
{
    guarded("closeDevice", [&] {
        if (all) {
            traceApi("close all devices");
            return closeDevices();
        }
        DeviceRef target = currentDevice();
        traceApi(fmt::format("close device: {}", target.device->ID));
        Tessel::closeDevice(target);
    });
}
