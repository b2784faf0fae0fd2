// Ending what connects a device with other computers. It comes before anything else is ended or locked that the
// threads of the links wait for; who calls this holds no lock.
#pragma once

#include "records/refs.h"

#include <chrono>

namespace Tessel {

// Asks both ends of the device to end. `forGood`: it gets no others.
void askLinks(const DeviceRef &target, bool forGood) noexcept;
// Takes them off the device and waits for each. One that hangs is left to itself.
void awaitLinks(const DeviceRef &target, std::chrono::milliseconds patience) noexcept;

// The line of a server that was to stop and never ran.
void logNeverServed() noexcept;

// The first two.
void endLinks(const DeviceRef &target, bool forGood) noexcept;

} // namespace Tessel
