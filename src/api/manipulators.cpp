#include "api/exports.h"
#include "log/text.h"
#include "manipulators/chain.h"
#include "manipulators/stages.h"
#include "session/open_close.h"

#include <span>

using namespace Tessel;

namespace {

std::span<const int32_t> channelList(const int32_t *channels, int32_t count)
{
    return channels && count > 0 ? std::span(channels, static_cast<size_t>(count)) : std::span<const int32_t>();
}

} // namespace

int32_t addMCoincidence(const char16_t *id, const int32_t *chans, int32_t numChans, double window,
                        uint32_t coincMode, uint32_t timeMode, uint8_t keep)
{
    return guarded("addMCoincidence", -1, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API AddMCoincidence {} {} {} {} {} @{}", numChans, window, coincMode,
                   timeMode, keep, target->device.ID);
        return addCoincidence(target, {.Channels = channelList(chans, numChans),
                                       .WindowPs = window,
                                       .CoincMode = coincMode,
                                       .TimeMode = timeMode,
                                       .Keep = keep != 0});
    });
}

int32_t addMMerge(const char16_t *id, const int32_t *chans, int32_t numChans, uint8_t keep)
{
    return guarded("addMMerge", -1,
                   [&] { return addMerge(deviceOf(id), channelList(chans, numChans), keep != 0); });
}

// The id is ignored: hosts know it so.
int32_t addMDelay(const char16_t *, uint8_t chan, double delay, int8_t keep)
{
    return guarded("addMDelay", -1, [&] { return addDelay(currentDevice(), chan, delay, keep != 0); });
}

int32_t addMHerald(const char16_t *id, uint8_t herald, const int32_t *gated, int32_t numGated, int32_t delay,
                   int32_t window, uint8_t inverted, uint8_t keep)
{
    return guarded("addMHerald", -1, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API AddHerald {}: {} {} {} {} {} @{}", herald, numGated, delay,
                   window, inverted, keep, target->device.ID);
        return addHerald(target, {.Herald = herald,
                                  .Gated = channelList(gated, numGated),
                                  .DelayPs = delay,
                                  .WindowPs = window,
                                  .Inverted = inverted != 0,
                                  .Keep = keep != 0});
    });
}

int32_t addMImportStream(const char16_t *id, const char16_t *sourceId, uint8_t start, const int32_t *chans,
                         int32_t numChans, int32_t offset)
{
    return guarded("addMImportStream", -1, [&] {
        DeviceRef target = deviceOf(id);
        const std::string source = toUtf8(textOf(sourceId));
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API AddImport {} {} {} {} @{}", source, start, numChans, offset,
                   target->device.ID);
        return addImportStream(target, {.SourceId = source,
                                        .Start = start != 0,
                                        .Channels = channelList(chans, numChans),
                                        .OffsetPs = offset,
                                        .Devices = &deviceLookUp});
    });
}

int32_t addMCountRate(const char16_t *id, double window)
{
    return guarded("addMCountRate", -1, [&] { return addCountRate(deviceOf(id), window); });
}

bool getMCountRates(const char16_t *id, int32_t index, uint32_t *rates)
{
    return guarded("getMCountRates", false, [&] { return countRates(deviceOf(id), index, rates); });
}

void addMSubStream(const char16_t *id, uint64_t from, uint64_t to)
{
    guarded("addMSubStream", [&] { addSubStream(deviceOf(id), from, to); });
}

bool tessel_addMSort(const char16_t *id, uint64_t window)
{
    return guarded("tessel_addMSort", false, [&] { return addSort(deviceOf(id), window); });
}

void deleteMani(const char16_t *id, uint32_t index)
{
    guarded("deleteMani", [&] { endStage(deviceOf(id), index); });
}

void clearManis(const char16_t *id)
{
    guarded("clearManis", [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API clearManis @{}", target->device.ID);
        removeStages(target);
    });
}
