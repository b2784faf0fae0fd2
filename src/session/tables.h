// The library's table of devices, and which of them is the current one.
//
// It is never destroyed: a run that is live when the process ends keeps everything that it touches.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

// What a failed look-up gives: a device that is never open. Only its context is ever written, and nobody reads
// it.
const DeviceRef &noDevice();

DeviceRef currentDevice(); // noDevice() where there is none
// A device that isn't in the table any more makes noDevice() the current one.
void makeCurrent(const DeviceRef &device);

// The device with this id, or noDevice(); changes nothing.
DeviceRef findDevice(std::string_view id);

// All devices, in table order.
std::vector<DeviceRef> allDevices();

// How many there are, and one of them; noDevice() after the last. These allocate nothing.
size_t deviceCount();
DeviceRef deviceAt(size_t index);

// Appends a device and makes it the current one: all or nothing.
void addDevice(const DeviceRef &device);
// The same, with an id that no device in the table has. Nobody else knows the device yet. False, and nothing
// is appended: that id with a zero is larger than `largestId` bytes.
bool addWithOwnId(const DeviceRef &device, uint64_t largestId);
// Appends an instrument. The current device stays.
void addInstrument(const DeviceRef &device);
// The instrument on this port of the family's library; null: it was never found.
DeviceRef findInstrument(LibType type, int32_t port);
// Nobody works on the device.
void setId(Device &device, std::string id);
// The devices after it move up.
void removeDevice(const DeviceRef &device);
// Empties the table, if no file is in it. False, without effect: a file has been opened meanwhile.
bool removeInstruments();

} // namespace Tessel
