// The stream itself, as record words or as decoded events.
#include "api/exports.h"
#include "measurements/raw.h"
#include "measurements/unfold.h"
#include "run/requests.h"
#include "session/open_close.h"

using namespace Tessel;

namespace {

// "No device" has no block: its count is 0. That of an empty block stays as it is.
DeviceRef deviceWithBlock(const char16_t *id, uint64_t *count)
{
    DeviceRef target = deviceOf(id);
    if (target == noDevice() && count) *count = 0;
    return target;
}

} // namespace

bool rawMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save, uint32_t *block,
                uint64_t *count, uint64_t capacity, uint8_t *finished)
{
    return guardedStart("rawMeasure", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API rawMeasure {} {} @{}", acqTime, waitFinished, target->device.ID);
        RunRequest request = requestOf(MeasKind::Raw, target->device, acqTime, waitFinished, save, finished);
        request.PrepareImports = false;
        request.RawBlock = block;
        request.RawCapacity = capacity;
        request.RawCount = count;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool rawStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint32_t *block, uint64_t capacity,
                   uint8_t *finished)
{
    return guardedStart("rawStartBlock", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API rawStartBlock {} @{}", acqTime, target->device.ID);
        RunRequest request = requestOf(MeasKind::Raw, target->device, acqTime, 0, save, finished);
        request.PrepareImports = false;
        request.RawBlock = block;
        request.RawCapacity = capacity;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool rawGetBlock(const char16_t *id, uint32_t *words, uint64_t *count)
{
    return guarded("rawGetBlock", true, [&] {
        takeRawBlock(deviceWithBlock(id, count)->context, words, count);
        return true;
    });
}

bool ufMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save, uint64_t *times,
               uint8_t *channels, uint64_t *count, uint64_t capacity, uint8_t *finished)
{
    return guardedStart("ufMeasure", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API ufMeasure start {} {} @{}", acqTime, waitFinished,
                   target->device.ID);
        RunRequest request = requestOf(MeasKind::Unfold, target->device, acqTime, waitFinished, save, finished);
        request.UnfoldTimes = times;
        request.UnfoldChannels = channels;
        request.UnfoldCapacity = capacity;
        request.UnfoldCount = count;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool ufStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint64_t *times, uint8_t *channels,
                  uint64_t capacity, uint8_t *finished)
{
    return guardedStart("ufStartBlock", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API ufStartBlock {} {} {} @{}", acqTime, save, capacity,
                   target->device.ID);
        RunRequest request = requestOf(MeasKind::Unfold, target->device, acqTime, 0, save, finished);
        request.UnfoldTimes = times;
        request.UnfoldChannels = channels;
        request.UnfoldCapacity = capacity;
        startMeasurement(target, request, deviceLookUp);
    });
}

bool ufGetBlock(const char16_t *id, uint64_t *times, uint8_t *channels, uint64_t *count)
{
    return guarded("ufGetBlock", true, [&] {
        takeUnfoldBlock(deviceWithBlock(id, count)->context, times, channels, count);
        return true;
    });
}

bool exportStreamMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                         uint8_t *finished)
{
    return guardedStart("exportStreamMeasure", finished, [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API exportStreamMeasure {} {} @{}", acqTime, waitFinished,
                   target->device.ID);
        startMeasurement(target,
                         requestOf(MeasKind::Raw, target->device, acqTime, waitFinished, save, finished),
                         deviceLookUp);
    });
}

bool getTimesFromChannelUF(const uint8_t *channels, const uint64_t *times, uint64_t *result, int32_t channel,
                           uint64_t *count)
{
    return guarded("getTimesFromChannelUF", true, [&] {
        if (!channels || !times || !count) return true;
        *count = timesOfChannel(channels, times, *count, channel, result);
        return true;
    });
}
