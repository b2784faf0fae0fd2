// `Links`: what serves a device to other computers, and what reaches one that another computer serves. remote/
// makes both; session/ ends them before it closes the device.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

namespace Tessel {

inline constexpr uint16_t defaultPort = 55000;

// One end of TCP connections, with a thread of its own. remote/ sets the functions.
struct LinkEnd
{
    void (*AskEnd)(LinkEnd &end) = nullptr; // returns at once
    // Waits for the thread. One that hangs in an instrument's library for longer is left to itself.
    void (*AwaitEnd)(LinkEnd &end, std::chrono::milliseconds patience) = nullptr;
};

struct Links
{
    std::mutex Lock;                 // guards the rest; held for a look, a change, or the start of one
    std::shared_ptr<LinkEnd> Server; // null: the device isn't served
    std::shared_ptr<LinkEnd> Client; // null: the device isn't a remote one, or its link was ended
    bool WasServed = false;          // or was to be: who never was has a server that never ran
    bool Closed = false;             // the device is closed for good: it gets no link any more
};

} // namespace Tessel
