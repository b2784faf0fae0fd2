// What a client does with a line from its server. The client's I/O thread.
//
// Only what was asked for is taken: a server can't change a device, or make devices, whenever it likes.
#include "config/device_json.h"
#include "config/json_values.h"
#include "devices/primitives.h"
#include "log/log.h"
#include "remote/client.h"
#include "remote/remote_device.h"
#include "session/tables.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

namespace Tessel {

namespace {

using boost::json::object;

constexpr size_t mostNewDevices = 64; // of one message
constexpr size_t longestId = 255;     // bytes

void logUnsupported(std::string_view command, std::string_view line)
{
    logErr(LogCategory::General, "Remote: Unsupported Command: {} in '{}')", shownText(command),
           shownText(line));
}

// True: the answer to this question was awaited, and from now on isn't.
bool wasAsked(Client &client, std::string_view command)
{
    const std::lock_guard lock(client.Lock);
    if (client.Asked != command) return false;
    client.Asked = {};
    return true;
}

// ------------------------------------------------------------------------------------ about the device

void takeConfig(Client &client, const DeviceRef &target, const boost::json::value &data)
{
    parseJsonDevConfig(target->device, boost::json::serialize(data.as_object()));
    const std::lock_guard lock(client.Lock);
    client.HasConfig = true;
}

void takeFromDevice(Client &client, const Envelope &envelope, std::string_view line)
{
    const DeviceRef target = client.Target.lock();
    const std::string id = target ? target->device.ID : "";
    if (envelope.Receiver.Id != id)
        return logErr(LogCategory::General, "Remote: DecodeMessage (Client): wrong receiver id: {} @{}",
                      shownText(envelope.Receiver.Id), id);
    const auto command = commandOf(envelope);
    if (!command) return;
    logDeb(LogCategory::Progress, "Remote: DecodeMessage (Client): {}", shownText(*command));
    if (*command != "getConfig" || !target) return logUnsupported(*command, line);
    if (wasAsked(client, *command)) takeConfig(client, target, dataOf(envelope));
}

// -------------------------------------------------------------------------------------- about the link

// What an element of "getDeviceNames" says of a device; what is missing or wrong stays as it is.
void takeState(Device &device, const JsonObject &element)
{
    if (const auto isInitialized = JSONparseBool(element, "isInitialized"))
        device.IsInitialized = *isInitialized;
    const auto error = JSONparseInt(element, "err");
    if (error && std::in_range<int32_t>(*error)) device.Error = static_cast<int32_t>(*error);
}

LibType libTypeOf(const JsonObject &element)
{
    const int64_t number = JSONparseInt(element, "libType").value_or(-1);
    const bool isFamily = number >= 0 && number <= static_cast<int64_t>(LibType::CD90);
    return isFamily ? static_cast<LibType>(number) : LibType::Undefined;
}

// Null: no device has this name.
DeviceRef findRemote(std::string_view name)
{
    const auto all = allDevices();
    const auto found = std::ranges::find_if(
        all, [name](const DeviceRef &each) { return isRemote(each->device) && each->device.ID == name; });
    return found != all.end() ? *found : nullptr;
}

bool isId(std::string_view name)
{
    if (!name.empty() && name.size() <= longestId) return true;
    logErr(LogCategory::General, "Remote: not the id of a device: '{}'", shownText(name));
    return false;
}

// The device of an element, new or known; null: there is none.
DeviceRef namedDevice(const JsonObject &element, size_t &numNew)
{
    const auto name = JSONparseString(element, "Name");
    if (!name || !isId(*name)) return nullptr;
    DeviceRef known = findRemote(*name);
    if (known) takeState(known->device, element);
    if (known || numNew == mostNewDevices) return known;
    ++numNew;
    const DeviceRef made = makeRemoteDevice(*name);
    made->device.LibType = libTypeOf(element);
    takeState(made->device, element);
    addInstrument(made);
    return made;
}

void takeNames(Client &client, const boost::json::value &data)
{
    std::vector<DeviceRef> named;
    size_t numNew = 0;
    for (const auto &element : data.as_array()) {
        const DeviceRef device = namedDevice(objectOf(element), numNew);
        if (device && std::ranges::find(named, device) == named.end()) named.push_back(device);
    }
    if (numNew == mostNewDevices)
        logWrn(LogCategory::General, "Remote: The server names many devices, {} new ones are taken", numNew);
    const std::lock_guard lock(client.Lock);
    client.Named = std::move(named);
}

void takeFromServer(Client &client, const Envelope &envelope, std::string_view line)
{
    const auto command = commandOf(envelope);
    if (!command || *command == "ack") return;
    if (*command == "getDeviceNames") {
        if (wasAsked(client, *command)) takeNames(client, dataOf(envelope));
    } else if (*command == "isConnected") {
        const bool isConnected = dataOf(envelope).as_bool();
        if (const DeviceRef target = client.Target.lock()) target->device.IsInitialized = isConnected;
    } else if (*command == "error") {
        logErr(LogCategory::General, "Remote: Server reported: \n{}",
               shownText(std::string_view(dataOf(envelope).as_string())));
    } else {
        logUnsupported(*command, line);
    }
}

} // namespace

void DecodeMessage(Client &client, std::string_view line)
{
    const DeviceRef target = client.Target.lock();
    logInf(LogCategory::Progress, "Remote: DecodeMessage (Client): {} @{}", shownText(line),
           target ? target->device.ID : "");
    try {
        const Envelope envelope = OpenEnvelope(line);
        if (envelope.Receiver.Type == kestType)
            takeFromDevice(client, envelope, line);
        else if (envelope.Receiver.Type == clientType)
            takeFromServer(client, envelope, line);
        else
            logErr(LogCategory::General, "Remote: Unsupported Receiver Type: {} in '{}')",
                   shownText(envelope.Receiver.Type), shownText(line));
    } catch (const std::exception &failure) {
        logErr(LogCategory::General, "Remote: DecodeMessage (Client) failed: {}", failure.what());
    }
}

} // namespace Tessel
