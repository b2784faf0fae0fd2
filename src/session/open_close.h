// Picking, initialising and closing devices.
#pragma once

#include "session/tables.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

// How lower layers reach other devices than their own.
extern const DeviceLookUp deviceLookUp;

bool openDevice(Device &device);

// The first device in the table with this id that can be opened, any if it is empty; noDevice() if there is
// none.
DeviceRef pickDevice(const std::string &id);

// Opens a recorded file: a new device, which becomes the current one. noDevice(), and nothing changes: it can't
// be read, or its id with a zero is larger than `largestId` bytes.
DeviceRef openFile(std::string_view path, uint64_t largestId);

// The same; but where it can't be opened, the device that is current is given, after `setAfterFailedOpen`: the
// caller tells by the id.
DeviceRef getFileDevice(std::string_view path);

// What initDevice does once it has its device. True: initialised.
bool initDevice(const DeviceRef &target);

// Ends the run, then closes. A file device leaves the table with its chain.
void closeDevice(const DeviceRef &target);

// From the last to the first.
void closeDevices();

} // namespace Tessel
