// Opening, initialising and closing an instrument: the library's part. session/ has the table, the ids and the
// order of what follows.
#pragma once

#include "devices/locked_device.h"

#include <string>

namespace Tessel {

// True: open, and `serial` is what the instrument is called. -1 and -2 (busy) are no error if `quiet`.
bool openInstrument(LockedDevice &locked, std::string &serial, bool quiet);

// Brings the instrument into its measurement mode with its reference clock.
bool Initialize(Device &device);

// A device that isn't open stays as it is. An instrument that refuses stays open.
void closeInstrument(LockedDevice &locked);
// The instrument is gone: the device is closed, whatever the library says to that.
void closeLost(LockedDevice &locked);

} // namespace Tessel
