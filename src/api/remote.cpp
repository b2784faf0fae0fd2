#include "api/exports.h"
#include "remote/link.h"
#include "remote/remote_device.h"

using namespace Tessel;

bool tessel_connect(const char *host, uint16_t port)
{
    return guarded("tessel_connect", false, [&] {
        const std::string server(textOf(host).empty() ? "127.0.0.1" : textOf(host));
        if (LogLevel.Api) logInf(LogCategory::Progress, "API tessel_connect {} {}", server, port);
        return connectTo(server, port ? port : defaultPort);
    });
}
