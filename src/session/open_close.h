// Picking, initialising and closing devices.
#pragma once

#include "session/tables.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

// Handed down to lower layers, which reach other devices through it.
extern const DeviceLookUp deviceLookUp;

bool openDevice(Device &device);

// The first device in the table that can be opened and has this id, or any id if it is empty; noDevice() if
// there is none.
DeviceRef pickDevice(const std::string &id);

// Opens a recorded file: a new device, which becomes the current one. noDevice(), and nothing changes: it can't
// be read, or its id with a zero is larger than `largestId` bytes.
DeviceRef openFile(std::string_view path, uint64_t largestId);

// The same, but a file that can't be opened gives the current device, after `setAfterFailedOpen`. The caller
// sees it by the id.
DeviceRef getFileDevice(std::string_view path);

// What initDevice does once it has its device. True: initialised.
bool initDevice(const DeviceRef &target);

// Ends the run, then closes. A file device leaves the table with its chain.
void closeDevice(const DeviceRef &target);

// From the last to the first.
void closeDevices();

} // namespace Tessel
