// Picking, initialising and closing devices.
#pragma once

#include "session/tables.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

// Handed down to lower layers, which reach other devices through it.
extern const DeviceLookUp deviceLookUp;

// The first device in the table that can be opened and has this id, or any id if it is empty; noDevice() if
// there is none. An empty table is filled first.
DeviceRef pickDevice(const std::string &id);

// Opens a recorded file: a new device with an id of its own, which becomes the current one. noDevice(), and
// nothing changes: it can't be read, or its id with a zero is larger than `largestId` bytes.
DeviceRef openFile(std::string_view path, uint64_t largestId);

// The same, but two files of one name may have one id, a file that is there, but of which reading fails, is a
// device without a header, and one that can't be opened gives the current device, after `setAfterFailedOpen`.
// The caller sees it by the id.
DeviceRef getFileDevice(std::string_view path);

// Ends the run of an instrument, then initialises it in the mode and with the clock that it has. True: the
// device is initialised.
bool initDevice(const DeviceRef &target);
// The same in another mode and with another clock; a recorded file keeps its own.
bool initDevice(const DeviceRef &target, int32_t measMode, int32_t refSource);

// Ends the run, then closes. A file device leaves the table with its chain.
void closeDevice(const DeviceRef &target);

// From the last to the first.
void closeDevices();

// The same, and empties the table: the end of the library. A run or an instrument that doesn't end in time is
// left to itself.
void closeForGood();

} // namespace Tessel
