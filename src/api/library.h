// `Library`: the one process-wide object with the tables of devices and their working records.
//
// It is never destroyed: a run that is live when the process ends keeps everything that it touches.
#pragma once

#include "devices/device.h"
#include "pipeline/meas_context.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

inline constexpr std::string_view programName = "Tessel";
inline constexpr int versionMajor = 1, versionMinor = 2, versionPatch = 3, versionBuild = 7;
std::string versionString(); // "Tessel v1.2.3.7"

// A device and its working record; whoever holds one keeps both alive.
struct DeviceRef
{
    std::shared_ptr<Device> device;
    std::shared_ptr<MeasContext> context;
};

struct Library
{
    std::mutex TablesLock; // guards the tables and CurrentDevice; held for a look-up or an exchange only
    std::vector<std::shared_ptr<Device>> DeviceTable; // in the order of finding or opening
    std::vector<std::shared_ptr<MeasContext>>
        MeasContextTable;                         // entry i belongs to the device with TableIndex i
    std::shared_ptr<Device> CurrentDevice;        // never null
    std::shared_ptr<Device> NullDevice;           // what a failed look-up gives
    std::shared_ptr<MeasContext> NullMeasContext; // what a device outside the table works on

    std::mutex ResultLock; // results while they are copied out; last in the lock order
};

Library &library();

DeviceRef currentDevice();
void makeCurrent(const std::shared_ptr<Device> &device);

// The device with this id, or NullDevice; changes nothing.
DeviceRef findDevice(std::string_view id);

// All devices, in table order.
std::vector<DeviceRef> allDevices();

// Append a device to the tables, and take one out; the devices behind it move up.
DeviceRef addDevice(std::shared_ptr<Device> device, std::shared_ptr<MeasContext> context);
void removeDevice(const DeviceRef &target);

} // namespace Tessel
