// Instruments: finding, opening, initialising and closing them. What their libraries are asked stands in
// devices/lifecycle.h.
#pragma once

#include "records/refs.h"

#include <chrono>

namespace Tessel {

// Looks at every port of every library and adds what it finds to the table. Open devices stay open, and devices
// that have gone stay in the table.
void scanDevices();

// True: the instrument is open. Its id is its serial number, or says that the port is busy. `quiet`: an empty
// or a busy port is no error.
bool openInstrument(const DeviceRef &target, bool quiet);

// Brings the instrument into its mode, reads what it says of itself and sends it all parameters, in the order
// that the instruments need. True: initialised. A parameter that is refused doesn't change that.
bool initInstrument(const DeviceRef &target);

// Closes the instrument, unless its library doesn't come back in time. A call that hangs in it may end with
// that.
void closeInTime(const DeviceRef &target, std::chrono::milliseconds patience);

} // namespace Tessel
