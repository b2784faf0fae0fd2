// `Server`: lets other computers reach a device over TCP. It has an I/O thread, which accepts connections and
// answers what they send (session.h). There is no authentication: who reaches the port commands the device.
#pragma once

#include "records/refs.h"
#include "remote/link.h"
#include "remote/session.h"

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Tessel {

struct Server : LinkEnd
{
    IoThread Io{};               // outlives what follows
    DeviceRef target;            // constant; `Links` of its context holds the server
    uint16_t Port = defaultPort; // constant after the start
    std::atomic<bool> Running{false};

    std::mutex PortLock; // to close the port; nothing is taken under it
    int Listening = -1;  // the descriptor of `Acceptor`, with PortLock once the thread runs; below 0: closed

    // The I/O thread's, once it runs.
    boost::asio::ip::tcp::acceptor Acceptor{Io.Context};
    boost::asio::steady_timer AcceptPause{Io.Context};
    bool IsAccepting = false;
    std::shared_ptr<size_t> Held = std::make_shared<size_t>(0);
    std::vector<SessionRef> Sessions{};
};

inline constexpr size_t mostSessions = 256;

// Serves the device until it is closed. `address`: one of this computer in numbers; empty: loopback. Port 0:
// the default. False, with an error: it is served already, is closed, or the port can't be had.
bool serve(const DeviceRef &target, std::string_view address, uint16_t port);

// Closes the connections and the port. A call that hangs in the instrument's library is left to itself.
void stopServing(const DeviceRef &target);

} // namespace Tessel
