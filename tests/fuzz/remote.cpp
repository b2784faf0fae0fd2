// Lines from a server: what they do to a device and to the table of devices.
#include "devices/primitives.h"
#include "input.h"
#include "quiet_log.h"
#include "remote/client.h"
#include "remote/remote_device.h"
#include "session/tables.h"

#include <algorithm>

using namespace Tessel;

namespace {

constexpr size_t mostNewDevices = 64;

void asMessage(std::string_view line)
{
    const std::string again = lineOf(OpenEnvelope(line));
    Fuzz::require(lineOf(OpenEnvelope(again)) == again, "what is sent is what is read");
}

// The first line of each kind answers a question.
void asAnswers(std::string_view line)
{
    const DeviceRef device = makeRemoteDevice("77");
    addInstrument(device);
    for (const char *question : {"getConfig", "getDeviceNames"}) {
        Client client;
        client.Target = device;
        client.Asked = question;
        DecodeMessage(client, line);
        Fuzz::require(client.Asked.empty() || (!client.HasConfig && !client.Named), "an answer is taken once");
    }
    Fuzz::require(device->device.ID == "77" && isRemote(device->device), "a server can't rename a device");
    Fuzz::require(device->device.ChansCfg.size() <= 4095, "rows have a bound");
    Fuzz::require(deviceCount() <= 1 + mostNewDevices, "so have new devices");
    for (const DeviceRef &each : allDevices())
        Fuzz::require(isRemote(each->device) && !each->device.ID.empty(), "a new device is a remote one");
    removeInstruments();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::quietLog();
    const std::string_view line(reinterpret_cast<const char *>(data), size);
    asMessage(line);
    asAnswers(line);
    return 0;
}
