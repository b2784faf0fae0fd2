#include "run/import_sources.h"

#include "devices/primitives.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/import_stream.h"
#include "run/end_run.h"
#include "run/requests.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <limits>

namespace Tessel {

namespace {

bool isUsable(const Device &source)
{
    return source.IsInitialized && source.IsOpen && source.LibType != LibType::Undefined && isReady(source);
}

void initImportSource(const DeviceRef &source, const DeviceLookUp &devices)
{
    logDeb(LogCategory::Progress, "Init Device @{}", source->device.ID);
    devices.Initialise(source);
}

void stopImportSource(const DeviceRef &source)
{
    auto run = liveRun(source->context);
    if (!run) return;
    logDeb(LogCategory::Progress, "Stop measurement @{}", source->device.ID);
    source->context.Description.StopReason = StopReason::Manual;
    requestStop(*run);
    abortRun(source->context, *run);
    waitOver(*run, Pace::aborting);
}

// The acquisition time is that of the source's last run, with its ms taken as seconds: hosts know it so.
void startImportSource(const DeviceRef &source, const DeviceLookUp &devices)
{
    logDeb(LogCategory::Progress, "Start measurement @{}", source->device.ID);
    const uint64_t acqTime =
        static_cast<uint64_t>(std::max(source->context.Description.AcqTime.load(), 0)) * 1000;
    startMeasurement(
        source,
        {.Kind = MeasKind::ImportSource,
         .AcqTimeMs = static_cast<uint32_t>(std::min<uint64_t>(acqTime, std::numeric_limits<uint32_t>::max()))},
        devices);
    auto run = liveRun(source->context);
    if (run)
        waitFor(run->Control, Pace::sourceMeasures, [&run] { return hasReached(*run, RunPhase::Measuring); });
}

void prepareSource(const DeviceRef &target, const Manipulator &record, const DeviceLookUp &devices)
{
    const DeviceRef source = devices.Find(record.SourceId);
    if (source->device.ID.empty()) {
        logErr(LogCategory::General, "Manipulator '{}': Import Device '{}' not found!", record.Name,
               record.SourceId);
        return;
    }
    if (importsFrom(devices, source, target->device.ID)) {
        logErr(LogCategory::General, "Manipulator '{}': Import Device '{}' needs this device's events!",
               record.Name, record.SourceId);
        return;
    }
    if (!isUsable(source->device) && !isFile(source->device)) initImportSource(source, devices);
    stopImportSource(source);
    if (isUsable(source->device)) startImportSource(source, devices);
}

} // namespace

void prepareImportSources(const DeviceRef &target, const DeviceLookUp &devices)
{
    for (const auto &record : chainOf(target->context)) {
        const bool starts = record->Params2.empty() || record->Params2.front() != 0;
        if (record->Type == ManisType::ImportStream && record->Enabled && starts)
            prepareSource(target, *record, devices);
    }
}

} // namespace Tessel
