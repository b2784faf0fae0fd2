#include "devices/source.h"

#include "devices/families.h"
#include "devices/file_source.h"
#include "devices/primitives.h"

namespace Tessel {

StreamFacts factsOf(const Device &device)
{
    std::lock_guard look(device.ConfigLock);
    return {.ID = device.ID,
            .Mode = device.MeasMode,
            .SyncPeriodPs = device.SyncPeriodPs,
            .Resolution = device.Resolution,
            .BaseResolution = device.BaseResolution,
            .NumChans = device.NumChans,
            .StopCount = device.StopCount,
            .MayWait = device.DeviceType == DeviceType::File,
            .IsLive = device.DeviceType == DeviceType::Instrument,
            .IgnoresCode18 = familyOf(device.LibType).IgnoresCode18};
}

RecordSource openSource(const Device &device)
{
    RecordSource source{.Kind = device.DeviceType};
    if (source.Kind == DeviceType::File) openFile(source, device);
    return source;
}

bool startSource(RecordSource &source, Device &device, int32_t acqTimeMs)
{
    source.Started = true;
    return StartMeasure(device, acqTimeMs, true);
}

Reading readSource(RecordSource &source, Device &device, uint32_t *room)
{
    if (source.Kind == DeviceType::File) return readFile(source, device, room);
    Reading reading;
    if (source.Lost) return reading;
    source.Lost = !room || !device.IsOpen || !readFifo(device, room, reading.Words);
    reading.Failed = source.Lost;
    reading.HasMore = reading.Words > 0 && reading.Words == familyOf(device.LibType).FifoWords;
    return reading;
}

void stopSource(RecordSource &source, Device &device)
{
    if (!source.Stopped && device.IsOpen) StopMeasure(device, true);
    source.Stopped = true;
}

} // namespace Tessel
