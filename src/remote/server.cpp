#include "remote/server.h"

#include "log/log.h"
#include "session/links.h"
#include "session/tables.h"
#include "threads/paces.h"

#include <boost/asio/ip/address.hpp>
#include <boost/asio/post.hpp>
#include <fmt/format.h>

#include <exception>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Tessel {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

std::string textOf(const tcp::endpoint &end)
{
    const std::string address = end.address().to_string();
    return fmt::format("{}:{}", end.address().is_v6() ? "[" + address + "]" : address, end.port());
}

void takeConnection(Server &server, tcp::socket socket)
{
    NetworkError ignored; // of a peer that has left again
    const std::string peer = textOf(socket.remote_endpoint(ignored));
    if (server.Sessions.size() >= mostSessions)
        return logWrn(LogCategory::General, "Server: {} is turned away, {} are connected @{}", peer,
                      server.Sessions.size(), server.target->device.ID);
    const auto session = std::make_shared<Session>(
        Session{.Owner = server, .Link = makeLink(std::move(socket), server.Held), .Peer = peer});
    server.Sessions.push_back(session);
    logInf(LogCategory::Progress, "Server: {} is connected @{}", peer, server.target->device.ID);
    startSession(session);
}

void acceptNext(Server &server);

// When there is no descriptor or no memory for a connection, there may be later.
void acceptLater(Server &server)
{
    server.AcceptPause.expires_after(Pace::afterFailure);
    server.AcceptPause.async_wait([&server](const NetworkError &error) {
        server.IsAccepting = false;
        if (!error) acceptNext(server);
    });
    server.IsAccepting = true;
}

void acceptNext(Server &server)
{
    if (server.IsAccepting || !server.Acceptor.is_open()) return;
    server.Acceptor.async_accept([&server](const NetworkError &error, tcp::socket socket) {
        server.IsAccepting = false;
        if (error == asio::error::operation_aborted) return;
        if (error && error != asio::error::connection_aborted) {
            reportNetwork("Server: accept", error);
            return acceptLater(server);
        }
        if (!error) takeConnection(server, std::move(socket));
        acceptNext(server);
    });
    server.IsAccepting = true;
}

void endSessions(Server &server) noexcept
{
    while (!server.Sessions.empty()) endSession(SessionRef(server.Sessions.back()));
}

// At the start, and after a handler has thrown. It may have been the one of any session, which would wait for
// ever: all end, and may come back.
void resume(Server &server)
{
    endSessions(server);
    acceptNext(server);
}

void closePort(Server &server) noexcept
{
    const std::lock_guard lock(server.PortLock);
    NetworkError ignored;
    server.Acceptor.close(ignored);
    server.Listening = -1;
}

// Its thread hangs, and is to find the number of its descriptor as it left it: another takes its place.
void leavePort(Server &server) noexcept
{
    const std::lock_guard lock(server.PortLock);
    if (server.Listening < 0) return;
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::shutdown(server.Listening, SHUT_RDWR); // where there is no other
    if (nothing < 0) return;
    ::dup3(nothing, server.Listening, O_CLOEXEC);
    ::close(nothing);
}

void endServer(Server &server) noexcept
{
    server.Running = false;
    closePort(server);
    server.AcceptPause.cancel();
    endSessions(server);
    server.Io.Work.reset();
}

void askServer(LinkEnd &end)
{
    auto &server = static_cast<Server &>(end);
    try {
        asio::post(server.Io.Context, [&server] { endServer(server); });
    } catch (const std::exception &) { // no memory for that: awaitServer() does it
        server.Io.Context.stop();
    }
}

// Its thread was stopped where it stood, and is joined.
void endStopped(Server &server)
{
    endServer(server);
    server.Io.Context.restart();
    server.Io.Context.poll(); // handlers hold sessions
}

void awaitServer(LinkEnd &end, std::chrono::milliseconds patience)
{
    auto &server = static_cast<Server &>(end);
    if (awaitIo(server.Io, patience)) {
        if (server.Running) endStopped(server);
    } else {
        leavePort(server);
        logErr(LogCategory::Device,
               "Server: The instrument's library doesn't come back, it is left to itself! @{}",
               server.target->device.ID);
    }
    logInf(LogCategory::Progress, "Server: ({}) stopped @{}", server.Port, server.target->device.ID);
}

// False: the port can't be had.
bool listenOn(Server &server, std::string_view address)
{
    NetworkError error;
    const auto host = address.empty() ? asio::ip::address(asio::ip::address_v4::loopback())
                                      : asio::ip::make_address(std::string(address), error);
    const tcp::endpoint end(host, server.Port);
    tcp::acceptor &acceptor = server.Acceptor;
    if (!error) acceptor.open(end.protocol(), error);
    if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error); // a server that starts again
    if (!error) acceptor.bind(end, error);
    if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
    server.Listening = error ? -1 : acceptor.native_handle();
    if (error)
        reportNetwork(fmt::format("Server: {}:{}", address.empty() ? "loopback" : address, server.Port), error);
    else
        logInf(LogCategory::Progress, "Server: listens on {} @{}", textOf(end), server.target->device.ID);
    return !error;
}

bool refuseServing(const DeviceRef &target, std::string_view why)
{
    logErr(LogCategory::General, "Server: {} @{}", why, target->device.ID);
    return false;
}

} // namespace

bool serve(const DeviceRef &target, std::string_view address, uint16_t port)
{
    if (target == noDevice()) return refuseServing(target, "there is no device to serve");
    Links &links = target->context.Links;
    std::lock_guard lock(links.Lock);
    if (links.Server) return refuseServing(target, "the device is served already");
    if (links.Closed) return refuseServing(target, "the device is closed");
    const auto server = std::make_shared<Server>();
    server->AskEnd = askServer;
    server->AwaitEnd = awaitServer;
    server->target = target;
    server->Port = port == 0 ? defaultPort : port;
    links.WasServed = true;
    if (!listenOn(*server, address)) return false;
    server->Running = true;
    startIo(server->Io, server, target->device.ID, [&each = *server] { resume(each); });
    links.Server = server; // without it nobody would stop the thread: this can't fail
    return true;
}

void stopServing(const DeviceRef &target)
{
    Links &links = target->context.Links;
    std::shared_ptr<LinkEnd> server;
    bool wasServed = false;
    {
        std::lock_guard lock(links.Lock);
        server = std::exchange(links.Server, nullptr);
        wasServed = links.WasServed;
    }
    if (!server && !wasServed) logNeverServed();
    if (!server) return;
    server->AskEnd(*server);
    server->AwaitEnd(*server, Pace::aborting);
}

} // namespace Tessel
