#include "api/exports.h"
#include "remote/link.h"
#include "remote/remote_device.h"
#include "remote/server.h"

using namespace Tessel;

bool tessel_serve(const char16_t *id, const char *address, uint16_t port)
{
    return guarded("tessel_serve", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API tessel_serve \"{}\" {} @{}", textOf(address), port,
                   target->device.ID);
        return serve(target, textOf(address), port);
    });
}

void tessel_stopServing(const char16_t *id)
{
    guarded("tessel_stopServing", [&] { stopServing(deviceOf(id)); });
}

bool tessel_connect(const char *host, uint16_t port)
{
    return guarded("tessel_connect", false, [&] {
        const std::string server(textOf(host).empty() ? "127.0.0.1" : textOf(host));
        if (LogLevel.Api) logInf(LogCategory::Progress, "API tessel_connect {} {}", server, port);
        return connectTo(server, port ? port : defaultPort);
    });
}
