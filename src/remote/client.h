// `Client`: one connection of this process to a server, from connecting to its end. The client of a remote
// device reaches that device; one without a device asks what devices there are.
//
// A server answers every message, in their order, and says nothing unasked. So each line that comes
// acknowledges the oldest message that has no answer yet, and one message is in flight at a time.
//
// What is received is decoded on the client's I/O thread, which also owns socket and queue. Every function here
// may be called on any thread.
#pragma once

#include "records/refs.h"
#include "remote/envelope.h"
#include "remote/link.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

using Endpoints = std::vector<boost::asio::ip::tcp::endpoint>;

enum class ClientState {
    Connecting,
    Connected,
    Lost,   // by the peer or the network, or never reached. A client doesn't connect again
    Stopped // by this side
};

struct Client : LinkEnd
{
    // Constant.
    std::weak_ptr<DeviceEntry> Target; // the device that it stands for; none: it asks what there is
    Endpoints Servers;                 // addresses of one server, to be tried in turn
    uint16_t Port = defaultPort;

    std::atomic<ClientState> State{ClientState::Connecting}; // written with Lock

    std::mutex Lock;                 // guards the rest up to `Failure`; nothing but the log's is taken under it
    std::condition_variable Changed; // an answer came, or the state changed
    std::string Host;                // empty once it has stopped
    uint64_t SentIndex = 0;          // of the last message
    uint64_t AckIndex = 0;           // of the last message that has an answer
    std::string_view Asked;          // the question that is open; what nobody asked for isn't taken
    bool HasConfig = false;          // the answer has filled the device's record
    std::optional<std::vector<DeviceRef>> Named; // the answer to "getDeviceNames"
    NetworkError Failure;                        // why it was lost

    // The I/O thread's.
    IoThread Io;
    std::optional<boost::asio::ip::tcp::socket> Dialing; // until it is connected
    LinkRef Link;
    std::deque<std::string> WriteQueue; // whole lines
    bool Writing = false;
};

// Begins to connect. `target`: null for a client without a device.
std::shared_ptr<Client> startClient(const DeviceRef *target, std::string host, uint16_t port,
                                    Endpoints servers);

// Ends the connection and its thread; lines that wait aren't sent. Not on the client's own thread.
void stopClient(Client &client);

// True: connected. False: not by the deadline, and `Failure` says why if it is lost.
bool waitConnected(Client &client, std::chrono::steady_clock::time_point deadline);
// True: the message with this index has its answer.
bool waitAnswered(Client &client, uint64_t index, std::chrono::steady_clock::time_point deadline);

// Sends a message; gives its index, or that of the last one if there is no connection, of which nobody hears.
// Waits up to Pace::serverAnswers for the answer to the message before it, but not on the client's own thread.
// `asked`: the command, if it is a question.
uint64_t sendEnvelope(Client &client, Envelope envelope, std::string_view asked = {});

// A line from the server.
void DecodeMessage(Client &client, std::string_view line);

// The client of a remote device; null: there is none.
std::shared_ptr<Client> clientOf(MeasContext &context);
// Sends a command to the device. A `timeout` below 0: doesn't wait for the answer.
void sendCommand(const DeviceRef &target, boost::json::object content, std::chrono::milliseconds timeout);

} // namespace Tessel
