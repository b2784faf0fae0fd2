// Picking, initialising and closing devices, and the end of a run that stands in the way of that.
#pragma once

#include "api/library.h"

#include <chrono>
#include <string>

namespace Tessel {

// The run that is live on this device, or null.
std::shared_ptr<Run> liveRun(MeasContext &context);

// Stops the run on the device, if one is live, and waits for its end; after some seconds it is aborted. False:
// it is still live after that, and keeps its records for ever.
bool endRun(const DeviceRef &target);

// Waits until the run has come to its end. False: not within `patience`.
bool waitOver(Run &run, std::chrono::milliseconds patience);

bool openDevice(Device &device);

// The first device in the table with this id that can be opened, any if it is empty; NullDevice if there is
// none.
DeviceRef pickDevice(const std::string &id);

// What initDevice does once it has its device. True: initialised.
bool initDevice(const DeviceRef &target);

// Ends the run, then closes. A file device leaves the table with its chain.
void closeDevice(const DeviceRef &target);

// From the last to the first.
void closeDevices();

} // namespace Tessel
