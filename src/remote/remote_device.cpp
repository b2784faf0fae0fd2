#include "remote/remote_device.h"

#include "log/log.h"
#include "remote/client.h"
#include "threads/paces.h"

#include <boost/asio/ip/tcp.hpp>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace Tessel {

namespace {

using namespace std::chrono;
using boost::asio::ip::tcp;
using boost::json::object;

constexpr milliseconds withoutWaiting{-1};

// Of a device that is gone nothing is asked.
void command(const std::weak_ptr<DeviceEntry> &entry, const object &content)
{
    if (const DeviceRef target = entry.lock()) sendCommand(target, content, withoutWaiting);
}

} // namespace

DeviceRef makeRemoteDevice(std::string id)
{
    auto made = std::make_shared<DeviceEntry>();
    made->device.DeviceType = DeviceType::Remote;
    made->device.ID = std::move(id);
    const std::weak_ptr<DeviceEntry> entry = made;
    made->device.Remote = {
        .IsConnected =
            [entry] {
                const DeviceRef target = entry.lock();
                const auto client = target ? clientOf(target->context) : nullptr;
                return client && client->State == ClientState::Connected;
            },
        .StartMeasure =
            [entry](int32_t acqTimeMs) {
                command(entry, commandContent("StartMeasure", {{"tAcq", acqTimeMs}}));
            },
        .SetInputEdgeTrig =
            [entry](int32_t channel, int32_t level, int32_t edge) {
                command(entry, commandContent("SetInputEdgeTrig",
                                              {{"chan", channel}, {"trigLvl", level}, {"trigEdge", edge}}));
            }};
    return made;
}

namespace {

// A server, and until when it is waited for.
struct ServerAddress
{
    std::string Host;
    uint16_t Port;
    steady_clock::time_point Deadline;
    Endpoints Addresses{};
};

bool refuse(const ServerAddress &server, std::string_view why)
{
    logErr(LogCategory::General, "Remote: {}:{} can't be reached: {}", server.Host, server.Port, why);
    return false;
}

struct LookedUp
{
    NetworkError Error;
    Endpoints Addresses;
};

LookedUp lookUp(const std::string &host, uint16_t port)
{
    boost::asio::io_context context;
    LookedUp found;
    const auto results =
        tcp::resolver(context).resolve(host, std::to_string(port), tcp::resolver::numeric_service, found.Error);
    for (const auto &each : results) found.Addresses.push_back(each.endpoint());
    return found;
}

// The system's look-up can't be ended, so it has a thread of its own; one that takes too long is left to
// itself.
bool resolve(ServerAddress &server)
{
    // Outlives its future: one that is awaited would need memory to be given up.
    const auto task = std::make_shared<std::packaged_task<LookedUp()>>(
        [host = server.Host, port = server.Port] { return lookUp(host, port); });
    auto answer = task->get_future();
    std::thread([task] { (*task)(); }).detach();
    if (answer.wait_until(server.Deadline) == std::future_status::timeout)
        return refuse(server, "its name isn't resolved in time");
    LookedUp found = answer.get();
    server.Addresses = std::move(found.Addresses);
    return !found.Error || refuse(server, found.Error.message());
}

std::shared_ptr<Client> start(const ServerAddress &server, const DeviceRef *target)
{
    return startClient(target, server.Host, server.Port, server.Addresses);
}

// Stops a client at the end of its use.
struct Stopping
{
    std::shared_ptr<Client> Asks;
    ~Stopping() { stopClient(*Asks); }
};

bool awaitConnection(const ServerAddress &server, Client &client)
{
    if (waitConnected(client, server.Deadline)) return true;
    const std::lock_guard lock(client.Lock);
    return refuse(server, client.Failure ? client.Failure.message() : "no connection in time");
}

std::optional<std::vector<DeviceRef>> askNames(const ServerAddress &server)
{
    const Stopping asking{start(server, nullptr)};
    Client &client = *asking.Asks;
    if (!awaitConnection(server, client)) return std::nullopt;
    constexpr std::string_view question = "getDeviceNames";
    const uint64_t index =
        sendEnvelope(client, linkEnvelope(clientType, serverType, commandContent(question)), question);
    const bool isAnswered = waitAnswered(client, index, server.Deadline);
    const std::lock_guard lock(client.Lock);
    if (!client.Named)
        logErr(LogCategory::General, "Remote: {}:{} doesn't tell its devices: {}", server.Host, server.Port,
               isAnswered       ? "it answers something else"
               : client.Failure ? client.Failure.message()
                                : "no answer in time");
    return std::exchange(client.Named, std::nullopt);
}

// What was there goes to the caller, who ends it. False: the device is closed, and gets no client.
bool exchangeClient(const DeviceRef &target, std::shared_ptr<LinkEnd> &client)
{
    Links &links = target->context.Links;
    const std::lock_guard lock(links.Lock);
    if (!links.Closed) std::swap(links.Client, client);
    return !links.Closed;
}

// The client of the device is `client` from now on; null: it has none.
bool setClient(const DeviceRef &target, std::shared_ptr<LinkEnd> client)
{
    const bool isOpen = exchangeClient(target, client);
    if (client) stopClient(static_cast<Client &>(*client));
    return isOpen;
}

// A device that is reached, and the question for its configuration.
struct Reached
{
    DeviceRef Target;
    std::shared_ptr<Client> Link;
    uint64_t Question = 0;
};

// It reaches the device, and everything that was sent has its answer.
bool isFree(Client &client, const ServerAddress &server)
{
    uint64_t last = 0;
    {
        const std::lock_guard lock(client.Lock);
        if (!client.HasConfig) return false;
        last = client.SentIndex;
    }
    return waitAnswered(client, last, server.Deadline) && client.State == ClientState::Connected;
}

// A device that is reached already stays where it is.
std::optional<Reached> reach(const ServerAddress &server, const DeviceRef &target)
{
    if (const auto known = clientOf(target->context); known && isFree(*known, server))
        return Reached{target, known};
    const auto fresh = start(server, &target);
    if (!setClient(target, fresh)) return std::nullopt;
    return Reached{target, fresh};
}

void askConfig(const ServerAddress &server, Reached &reached)
{
    Client &client = *reached.Link;
    if (!waitConnected(client, server.Deadline)) return;
    {
        const std::lock_guard lock(client.Lock);
        client.HasConfig = false;
    }
    constexpr std::string_view question = "getConfig";
    reached.Question =
        sendEnvelope(client, deviceEnvelope(reached.Target->device, commandContent(question)), question);
}

// A device that isn't given stays in the table without a client.
void takeConfig(const ServerAddress &server, const Reached &reached)
{
    waitAnswered(*reached.Link, reached.Question, server.Deadline);
    {
        const std::lock_guard lock(reached.Link->Lock);
        if (reached.Link->HasConfig) return;
    }
    logErr(LogCategory::General, "Remote: {}:{} doesn't give its device @{}", server.Host, server.Port,
           reached.Target->device.ID);
    setClient(reached.Target, nullptr);
}

// One call at a time, so that no device is made twice.
constinit std::timed_mutex connectLock; // the end of the library takes it, also without memory
static_assert(std::is_trivially_destructible_v<std::timed_mutex>, "threads may outlive main");

std::atomic<uint64_t> endsOfLibrary{0};

} // namespace

std::unique_lock<std::timed_mutex> endConnecting() noexcept
{
    ++endsOfLibrary;
    // By the system's clock, as the thread sanitizer of g++ 12 doesn't see a lock that waits by the steady one.
    return std::unique_lock(connectLock, system_clock::now() + Pace::aborting);
}

bool connectTo(const std::string &host, uint16_t port)
{
    const uint64_t ends = endsOfLibrary;
    const std::lock_guard lock(connectLock);
    if (endsOfLibrary != ends) return false; // while it waited for its turn
    ServerAddress server{.Host = host, .Port = port, .Deadline = steady_clock::now() + Pace::serverReached};
    if (!resolve(server)) return false;
    const auto named = askNames(server);
    if (!named) return false;
    std::vector<Reached> all;
    for (const DeviceRef &target : *named)
        if (auto reached = reach(server, target)) all.push_back(std::move(*reached));
    for (Reached &reached : all) askConfig(server, reached);
    for (const Reached &reached : all) takeConfig(server, reached);
    logInf(LogCategory::Progress, "Remote: {}:{} has {} devices", server.Host, server.Port, named->size());
    return true;
}

} // namespace Tessel
