#include "api/exports.h"
#include "config/device_json.h"
#include "datafiles/file_device.h"
#include "devices/primitives.h"
#include "manipulators/chain.h"
#include "remote/remote_device.h"
#include "run/end_run.h"
#include "session/instruments.h"
#include "session/open_close.h"
#include "settings/system_ini.h"
#include "settings/version.h"

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

// Nobody connects meanwhile, so no device is made.
void closeAll()
{
    const auto noConnect = endConnecting();
    closeForGood();
}

void restart()
{
    logWrn(LogCategory::General, "API already initialized! Exiting..");
    closeAll();
    traceApi("exit API");
    stopLog();
}

void resetNoDevice()
{
    endRun(noDevice());
    removeStages(noDevice());
    makeCurrent(noDevice());
}

void start(const std::string &iniPath)
{
    if (deviceCount() > 0) restart();
    endRun(noDevice()); // settings don't change under a run
    loadSettingsIni(iniPath);
    startLog(settings().LogFile, settings().LogConsole, logFolder(), programName, versionString(),
             settings().LogColours);
    loadSettingsIni(iniPath); // again: now its trace is kept
    traceApi(fmt::format("API loadSettingsIni {}", iniPath));
    traceApi(fmt::format("Init {}", versionString()));
    resetNoDevice();
}

// The library starts and stops on one thread at a time.
constinit std::mutex startStopLock;

} // namespace

bool initAPI(const char *systemIniPath)
{
    return guarded("initAPI", true, [&] {
        std::lock_guard oneAtATime(startStopLock);
        start(std::string(textOf(systemIniPath)));
        return true;
    });
}

void exitAPI(void)
{
    guarded("exitAPI", [] {
        std::lock_guard oneAtATime(startStopLock);
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
        scanDevices();
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
        traceApi(fmt::format("API getDevice \"{}\"", wanted));
        DeviceRef chosen = pickDevice(wanted);
        makeCurrent(chosen);
        if (chosen == noDevice()) return false;
        traceDevice(fmt::format("getDevice: \"{}\" \"{}\"", wanted, chosen->device.ID));
        if (!chosen->device.IsOpen) return false;
        traceApi(fmt::format("API getDevice \"{}\"", chosen->device.ID));
        copyText(chosen->device.ID, id);
        return true;
    });
}

bool getFileDevice(char *path)
{
    return guarded("getFileDevice", false, [&] {
        const DeviceRef chosen = Tessel::getFileDevice(textOf(path));
        traceApi(fmt::format("API getDevice \"{}\"", chosen->device.ID));
        copyText(chosen->device.ID, path);
        return true;
    });
}

bool tessel_openFile(const char *path, char *id, uint64_t capacity)
{
    return guarded("tessel_openFile", false, [&] {
        const DeviceRef opened = openFile(textOf(path), id ? capacity : UINT64_MAX);
        if (opened == noDevice()) return false;
        traceApi(fmt::format("API tessel_openFile \"{}\"", opened->device.ID));
        copyText(opened->device.ID, id);
        return true;
    });
}

bool initDevice(int32_t measMode, int32_t refSource)
{
    return guarded("initDevice", false, [&] {
        DeviceRef target = currentDevice();
        traceApi(fmt::format("API initDevice \"{}\" {} {}", target->device.ID, measMode, refSource));
        return Tessel::initDevice(target, measMode, refSource);
    });
}

void closeDevice(uint8_t all)
{
    guarded("closeDevice", [&] {
        if (all) {
            logInf(LogCategory::Progress, "close all devices");
            return closeDevices();
        }
        DeviceRef target = currentDevice();
        traceApi(fmt::format("close device: {}", target->device.ID));
        Tessel::closeDevice(target);
    });
}
