#include "session/links.h"

#include "log/log.h"
#include "threads/paces.h"

#include <utility>

namespace Tessel {

void askLinks(const DeviceRef &target, bool forGood) noexcept
{
    Links &links = target->context.Links;
    std::shared_ptr<LinkEnd> server, client;
    {
        std::lock_guard lock(links.Lock);
        server = links.Server;
        client = links.Client;
        if (forGood) links.Closed = true;
    }
    if (server) server->AskEnd(*server);
    if (client) client->AskEnd(*client);
}

void awaitLinks(const DeviceRef &target, std::chrono::milliseconds patience) noexcept
{
    Links &links = target->context.Links;
    std::shared_ptr<LinkEnd> server, client;
    bool isNeverServed = false;
    {
        std::lock_guard lock(links.Lock);
        server = std::exchange(links.Server, nullptr);
        client = std::exchange(links.Client, nullptr);
        isNeverServed = links.Closed && !links.WasServed;
    }
    if (server)
        server->AwaitEnd(*server, patience);
    else if (isNeverServed) // hosts know it so: every device has a server, which ends with it
        logNeverServed();
    if (client) client->AwaitEnd(*client, patience);
}

void logNeverServed() noexcept
{
    logInf(LogCategory::Progress, "Server: ({}) stopped @unknown", defaultPort);
}

void endLinks(const DeviceRef &target, bool forGood) noexcept
{
    askLinks(target, forGood);
    awaitLinks(target, Pace::aborting);
}

} // namespace Tessel
