// A device of another process: its record here, and how it is found and reached.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace Tessel {

// A record of a device that nobody reaches yet. Its operations are commands to its server.
DeviceRef makeRemoteDevice(std::string id);

// Asks a server what devices it has; each gets a record if it has none, a client of its own, and its
// configuration. Returns after Pace::serverReached at most. False: the server doesn't answer, and the log says
// why. A device that its server doesn't give is an error in the log, and has no client.
bool connectTo(const std::string &host, uint16_t port);

// At the library's end, before devices are closed: waits for the call of connectTo() that goes on, 10 s at
// most. As long as the result holds its lock none begins, and those that wait for their turn give up.
std::unique_lock<std::timed_mutex> endConnecting() noexcept;

} // namespace Tessel
