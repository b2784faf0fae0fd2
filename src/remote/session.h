// `Session`: one connection to a server. A line, its answer, the next line: one after the other, on the
// server's I/O thread.
#pragma once

#include "records/refs.h"
#include "remote/link.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Tessel {

struct Server;

// All fields are the I/O thread's.
struct Session
{
    Server &Owner; // outlives it
    LinkRef Link;
    std::string Peer;   // "127.0.0.1:40000"
    uint64_t Index = 0; // of its last message
};
using SessionRef = std::shared_ptr<Session>;

// Begins to read. What goes wrong ends this session alone.
void startSession(const SessionRef &session);
// Closes the connection and takes the session off the server. May be called again.
void endSession(const SessionRef &session) noexcept;

} // namespace Tessel
