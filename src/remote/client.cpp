#include "remote/client.h"

#include "log/log.h"
#include "threads/paces.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>

#include <new>
#include <utility>

namespace Tessel {

namespace {

namespace asio = boost::asio;

// False: it had stopped or was lost before, which stays.
bool moveTo(Client &client, ClientState state, const NetworkError &failure = {})
{
    {
        const std::lock_guard lock(client.Lock);
        if (client.State > ClientState::Connected) return false;
        client.State = state;
        client.Failure = failure;
    }
    client.Changed.notify_all();
    return true;
}

// With its last operation the thread ends.
void endConnection(Client &client)
{
    NetworkError ignored;
    if (client.Dialing) client.Dialing->close(ignored);
    if (client.Link) closeLink(*client.Link);
    client.Io.Work.reset();
}

void lose(Client &client, std::string_view what, const NetworkError &error)
{
    const bool wasConnected = client.State == ClientState::Connected;
    if (moveTo(client, ClientState::Lost, error) && wasConnected) reportNetwork(what, error);
    endConnection(client);
}

void acknowledge(Client &client)
{
    {
        const std::lock_guard lock(client.Lock);
        if (client.AckIndex < client.SentIndex) ++client.AckIndex;
    }
    client.Changed.notify_all();
}

void readOn(Client &client)
{
    readLine(client.Link, [&client](const NetworkError &error, std::string_view line) {
        if (error) return lose(client, "Client: read", error);
        DecodeMessage(client, line);
        acknowledge(client);
        readOn(client);
    });
}

// What stands in the queue when the connection is lost is sent by nobody.
void writeOn(Client &client)
{
    client.Writing = !client.WriteQueue.empty();
    if (!client.Writing) return;
    std::string line = std::move(client.WriteQueue.front());
    client.WriteQueue.pop_front();
    writeLine(client.Link, std::move(line), [&client](const NetworkError &error) {
        if (error) return lose(client, "Client: write", error);
        writeOn(client);
    });
}

void connect(Client &client)
{
    client.Dialing.emplace(client.Io.Context);
    const auto done = [&client](const NetworkError &error, const asio::ip::tcp::endpoint &) {
        if (error) return lose(client, "Client: connect", error);
        client.Link = makeLink(std::move(*client.Dialing), std::make_shared<size_t>(0));
        client.Dialing.reset();
        if (!moveTo(client, ClientState::Connected)) return endConnection(client);
        readOn(client);
    };
    asio::async_connect(*client.Dialing, client.Servers, done);
}

void askEnd(LinkEnd &end)
{
    auto &client = static_cast<Client &>(end);
    moveTo(client, ClientState::Stopped);
    try {
        asio::post(client.Io.Context, [&client] { endConnection(client); });
    } catch (const std::bad_alloc &) { // then the connection goes with the client
        client.Io.Context.stop();
    }
}

void awaitEnd(LinkEnd &end, std::chrono::milliseconds patience)
{
    auto &client = static_cast<Client &>(end);
    if (!client.Io.Thread.joinable()) return;
    awaitIo(client.Io, patience);
    {
        const std::lock_guard lock(client.Lock);
        client.Host.clear(); // before the line: hosts know it so
    }
    logInf(LogCategory::Progress, "Client: ({}:{}) stopped", "", client.Port);
}

} // namespace

std::shared_ptr<Client> startClient(const DeviceRef *target, std::string host, uint16_t port, Endpoints servers)
{
    auto client = std::make_shared<Client>();
    client->AskEnd = askEnd;
    client->AwaitEnd = awaitEnd;
    if (target) client->Target = *target;
    client->Servers = std::move(servers);
    client->Host = std::move(host);
    client->Port = port;
    // After an exception nobody knows which operations are still pending.
    auto resume = [begun = false, &client = *client]() mutable {
        if (std::exchange(begun, true)) return lose(client, "Client: handler", asio::error::no_memory);
        connect(client);
    };
    startIo(client->Io, client, "client", std::move(resume));
    return client;
}

void stopClient(Client &client)
{
    client.AskEnd(client);
    client.AwaitEnd(client, Pace::aborting);
}

bool waitConnected(Client &client, std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(client.Lock);
    client.Changed.wait_until(lock, deadline, [&] { return client.State != ClientState::Connecting; });
    return client.State == ClientState::Connected;
}

bool waitAnswered(Client &client, uint64_t index, std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(client.Lock);
    const auto isAnswered = [&] { return client.AckIndex >= index; };
    client.Changed.wait_until(lock, deadline,
                              [&] { return isAnswered() || client.State != ClientState::Connected; });
    return isAnswered();
}

uint64_t sendEnvelope(Client &client, Envelope envelope, std::string_view asked)
{
    std::unique_lock lock(client.Lock);
    const auto isFree = [&] {
        return client.SentIndex <= client.AckIndex || client.State != ClientState::Connected;
    };
    if (!client.Io.Context.get_executor().running_in_this_thread())
        client.Changed.wait_for(lock, Pace::serverAnswers, isFree);
    if (client.State != ClientState::Connected) return client.SentIndex;
    envelope.Index = client.SentIndex + 1;
    asio::dispatch(client.Io.Context, [&client, line = lineOf(envelope)]() mutable {
        client.WriteQueue.push_back(std::move(line));
        if (client.Link && !client.Writing) writeOn(client);
    });
    client.SentIndex = envelope.Index; // under the lock, so lines go out in the order of their indices
    if (!asked.empty()) client.Asked = asked;
    return client.SentIndex;
}

std::shared_ptr<Client> clientOf(MeasContext &context)
{
    const std::lock_guard lock(context.Links.Lock);
    return std::static_pointer_cast<Client>(context.Links.Client);
}

void sendCommand(const DeviceRef &target, boost::json::object content, std::chrono::milliseconds timeout)
{
    const auto client = clientOf(target->context);
    if (!client) return;
    const uint64_t index = sendEnvelope(*client, deviceEnvelope(target->device, std::move(content)));
    if (timeout.count() >= 0) waitAnswered(*client, index, std::chrono::steady_clock::now() + timeout);
}

} // namespace Tessel
