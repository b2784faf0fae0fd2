#include "remote/commands.h"

#include "config/device_json.h"
#include "devices/inputs.h"
#include "devices/primitives.h"
#include "log/log.h"
#include "session/tables.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <exception>
#include <limits>

namespace Tessel {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

// Of any size; what asks for less cuts it.
int64_t numberOf(const value &data, std::string_view key)
{
    return memberOf(data, key).to_number<int64_t>();
}

int32_t bounded(int64_t number, int32_t least, int32_t most)
{
    return static_cast<int32_t>(std::clamp<int64_t>(number, least, most));
}

int32_t anyNumber(const value &data, std::string_view key)
{
    using Limits = std::numeric_limits<int32_t>;
    return bounded(numberOf(data, key), Limits::min(), Limits::max());
}

// The instrument of a run that goes on isn't started again: the run would lose what it has measured.
void startMeasure(const DeviceRef &target, const value &data)
{
    const int32_t acqTimeMs = bounded(numberOf(data, "tAcq"), 0, Pace::longestAcquisitionMs);
    if (isInstrument(target->device) && liveRun(target->context))
        logErr(LogCategory::Device, "Remote: StartMeasure is refused during a measurement @{}",
               target->device.ID);
    else
        StartMeasure(target->device, acqTimeMs, true);
}

void setInputEdgeTrig(Device &device, const value &data)
{
    const int64_t channel = numberOf(data, "chan");
    if (channel < -1 || channel >= valueOf(device, &DeviceConfig::NumChans)) return;
    const int32_t edge = anyNumber(data, "trigEdge"), level = anyNumber(data, "trigLvl");
    const auto set = [&](ChannelRow &row) { return SetInputEdgeTrig(device, row, level, edge); };
    ChannelRow allInputs;
    allInputs.Index = -1;
    if (channel < 0)
        set(allInputs);
    else
        forInput(device, static_cast<size_t>(channel), set);
}

Envelope toClient(object content)
{
    return linkEnvelope(serverType, clientType, std::move(content));
}

Envelope acknowledgement()
{
    return toClient(commandContent("ack"));
}

Envelope answerOfDevice(const DeviceRef &target, const Envelope &message)
{
    Device &device = target->device;
    if (message.Receiver.Id != device.ID)
        return errorAnswer(LogCategory::Device,
                           fmt::format("Remote: DecodeMessage (Server): wrong receiver id: {} @{}",
                                       shownText(message.Receiver.Id), device.ID));
    const auto command = commandOf(message);
    if (command == "getConfig")
        return deviceEnvelope(device,
                              commandContent("getConfig", boost::json::parse(stringifyJsonDevConfig(device))));
    if (command == "StartMeasure") startMeasure(target, dataOf(message));
    if (command == "SetInputEdgeTrig") setInputEdgeTrig(device, dataOf(message));
    return acknowledgement();
}

array deviceNames()
{
    array names;
    for (const DeviceRef &each : allDevices()) {
        const Device &device = each->device;
        if (!isInstrument(device)) continue;
        names.push_back({{"Name", valueOf(device, &DeviceConfig::ID)},
                         {"libType", static_cast<int32_t>(device.LibType)},
                         {"isInitialized", device.IsInitialized.load()},
                         {"err", device.Error.load()}});
    }
    return names;
}

Envelope answerOfServer(const Envelope &message, bool isRunning, std::string_view shownLine)
{
    const auto command = commandOf(message);
    if (!command) return acknowledgement();
    if (command == "getDeviceNames") return toClient(commandContent("getDeviceNames", deviceNames()));
    if (command == "isConnected") return toClient(commandContent("isConnected", isRunning));
    return errorAnswer(LogCategory::General,
                       fmt::format("Remote: Unsupported Command: {} in '{}')", shownText(*command), shownLine));
}

Envelope answer(const DeviceRef &target, bool isRunning, std::string_view line)
{
    const std::string shownLine = shownText(line);
    logInf(LogCategory::Progress, "Remote: DecodeMessage (Server): {} @{}", shownLine, target->device.ID);
    const Envelope message = OpenEnvelope(line);
    const std::string &receiver = message.Receiver.Type;
    if (receiver == kestType) return answerOfDevice(target, message);
    if (receiver == serverType) return answerOfServer(message, isRunning, shownLine);
    return errorAnswer(LogCategory::General, fmt::format("Remote: Unsupported Receiver Type: {} in '{}')",
                                                         shownText(receiver), shownLine));
}

} // namespace

Envelope errorAnswer(LogCategory category, std::string_view text)
{
    logErr(category, "{}", text);
    return toClient(commandContent("error", boost::json::string_view(text)));
}

Envelope DecodeMessage(const DeviceRef &target, bool isRunning, std::string_view line)
{
    try {
        return answer(target, isRunning, line);
    } catch (const std::exception &failure) {
        return errorAnswer(LogCategory::General,
                           fmt::format("Remote: DecodeMessage (Server) failed: {}", failure.what()));
    }
}

} // namespace Tessel
