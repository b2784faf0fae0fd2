#include "api/exports.h"
#include "devices/acquisition.h"
#include "devices/inputs.h"
#include "devices/markers.h"
#include "devices/primitives.h"
#include "devices/sync.h"

using namespace Tessel;

bool setSyncDiv(const char16_t *id, int32_t divider)
{
    return guarded("setSyncDiv", false, [&] { return SetSyncDiv(deviceOf(id)->device, divider); });
}

bool setSyncTrigMode(const char16_t *id, int32_t mode)
{
    return guarded("setSyncTrigMode", false, [&] { return SetSyncTrgMode(deviceOf(id)->device, mode); });
}

bool setSyncEdgeTrig(const char16_t *id, int32_t level, int32_t edge)
{
    return guarded("setSyncEdgeTrig", false,
                   [&] { return SetSyncEdgeTrig(deviceOf(id)->device, level, edge); });
}

bool setSyncCFD(const char16_t *id, int32_t discriminator, int32_t zeroCross)
{
    return guarded("setSyncCFD", false,
                   [&] { return SetSyncCFD(deviceOf(id)->device, discriminator, zeroCross); });
}

bool setSyncChannelOffset(const char16_t *id, int32_t offset)
{
    return guarded("setSyncChannelOffset", false,
                   [&] { return SetSyncChannelOffset(deviceOf(id)->device, offset); });
}

bool setSyncChannelEnable(const char16_t *id, int32_t enable)
{
    return guarded("setSyncChannelEnable", false,
                   [&] { return SetSyncChannelEnable(deviceOf(id)->device, enable); });
}

bool setSyncDeadTime(const char16_t *id, int32_t deadTime)
{
    return guarded("setSyncDeadTime", false, [&] { return SetSyncDeadTime(deviceOf(id)->device, deadTime); });
}

bool setInputHysteresis(const char16_t *id, int32_t code)
{
    return guarded("setInputHysteresis", false, [&] { return SetInputHysteresis(deviceOf(id)->device, code); });
}

bool setTimingMode(const char16_t *id, int32_t mode)
{
    return guarded("setTimingMode", false, [&] { return SetTimingMode(deviceOf(id)->device, mode); });
}

bool setStopOverflow(const char16_t *id, uint32_t stopCount)
{
    return guarded("setStopOverflow", false, [&] {
        const DeviceRef target = deviceOf(id);
        return SetStopOverflow(target->device, target->context, stopCount, false);
    });
}

bool setBinning(const char16_t *id, int32_t binning)
{
    return guarded("setBinning", false, [&] { return SetBinning(deviceOf(id)->device, binning); });
}

bool setOffset(const char16_t *id, int32_t offset)
{
    return guarded("setOffset", false, [&] { return SetOffset(deviceOf(id)->device, offset); });
}

bool setHistoLength(const char16_t *id, int32_t lengthCode)
{
    return guarded("setHistoLength", false, [&] { return SetHistoLength(deviceOf(id)->device, lengthCode); });
}

bool clearHistMem(const char16_t *id)
{
    return guarded("clearHistMem", false, [&] { return Tessel::clearHistMem(deviceOf(id)->device, true); });
}

bool setMeasControl(const char16_t *id, int32_t control, int32_t startEdge, int32_t stopEdge)
{
    return guarded("setMeasControl", false,
                   [&] { return SetMeasControl(deviceOf(id)->device, control, startEdge, stopEdge); });
}

bool setTriggerOutput(const char16_t *id, int32_t period)
{
    return guarded("setTriggerOutput", false, [&] { return SetTriggerOutput(deviceOf(id)->device, period); });
}

bool setMarkerEdges(const char16_t *id, int32_t edge1, int32_t edge2, int32_t edge3, int32_t edge4)
{
    return guarded("setMarkerEdges", false, [&] {
        return SetMarkerEdges(deviceOf(id)->device, {edge1, edge2, edge3, edge4});
    });
}

bool setMarkerEnable(const char16_t *id, int32_t enable1, int32_t enable2, int32_t enable3, int32_t enable4)
{
    return guarded("setMarkerEnable", false, [&] {
        return SetMarkerEnable(deviceOf(id)->device, {enable1, enable2, enable3, enable4});
    });
}

bool setMarkerHoldoffTime(const char16_t *id, int32_t time)
{
    return guarded("setMarkerHoldoffTime", false,
                   [&] { return SetMarkerHoldoffTime(deviceOf(id)->device, time); });
}

bool setOflCompression(const char16_t *id, int32_t holdTime)
{
    return guarded("setOflCompression", false,
                   [&] { return SetOflCompression(deviceOf(id)->device, holdTime); });
}

// The texts that refuse a channel differ from one another: hosts know them so.

bool setInputTrigMode(const char16_t *id, int32_t channel, int32_t mode)
{
    return guarded("setInputTrigMode", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        auto answer =
            forInputs(device, channel, [&](ChannelRow &row) { return SetInputTrgMode(device, row, mode); });
        if (!answer) // the id stands where the channel should
            logWrn(LogCategory::General, "Invalid channel index {} @ API setInputTrigMode", device.ID);
        return answer.value_or(false);
    });
}

bool setInputEdgeTrig(const char16_t *id, int32_t channel, int32_t level, int32_t edge)
{
    return guarded("setInputEdgeTrig", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        auto answer = forInputs(device, channel,
                                [&](ChannelRow &row) { return SetInputEdgeTrig(device, row, level, edge); });
        if (!answer) // the id stands where the channel should
            logWrn(LogCategory::General, "Invalid channel index {} @ API setInputEdgeTrig", device.ID);
        return answer.value_or(false);
    });
}

bool setInputCFD(const char16_t *id, int32_t channel, int32_t discriminator, int32_t zeroCross)
{
    return guarded("setInputCFD", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        auto answer = forInputs(device, channel, [&](ChannelRow &row) {
            return SetInputCFD(device, row, discriminator, zeroCross);
        });
        if (!answer)
            logWrn(LogCategory::General, "Invalid channel index {} @ API setInputCFD @{}", channel, device.ID);
        return answer.value_or(false);
    });
}

bool setInputChannelOffset(const char16_t *id, int32_t channel, int32_t offset)
{
    return guarded("setInputChannelOffset", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        auto answer = forInputs(device, channel,
                                [&](ChannelRow &row) { return SetInputChannelOffset(device, row, offset); });
        if (!answer)
            logWrn(LogCategory::General, "Invalid channel index {} @ API setInputChannelOffset @{}", channel,
                   device.ID);
        return answer.value_or(false);
    });
}

bool setInputChannelEnable(const char16_t *id, int32_t channel, int32_t enable)
{
    return guarded("setInputChannelEnable", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        auto answer = forInputs(device, channel,
                                [&](ChannelRow &row) { return SetInputChannelEnable(device, row, enable); });
        if (!answer)
            logWrn(LogCategory::General, "Invalid channel index {} @ API setInputChannelEnable @{}", channel,
                   device.ID);
        return answer.value_or(false);
    });
}

bool setInputDeadTime(const char16_t *id, int32_t channel, int32_t deadTime)
{
    return guarded("setInputDeadTime", false, [&] {
        const DeviceRef target = deviceOf(id);
        Device &device = target->device;
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API setInputDeadTime {} {} @{}", channel, deadTime, device.ID);
        auto answer = forInputs(device, channel,
                                [&](ChannelRow &row) { return SetInputDeadTime(device, row, deadTime); });
        if (!answer) // with the braces
            logWrn(LogCategory::General, "{}", "Invalid channel index {} @ API setInputDeadTime");
        return answer.value_or(false);
    });
}
