#include "pipeline/import_sources.h"

#include "devices/lifecycle.h"
#include "devices/primitives.h"
#include "devices/result.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/import_stream.h"
#include "pipeline/requests.h"

#include <chrono>
#include <limits>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

namespace {

bool isUsable(const Device &source)
{
    return source.IsInitialized && source.IsOpen && source.LibType != LibType::Undefined;
}

void initSource(const DeviceRef &source)
{
    logDeb(LogCategory::Progress, "Init Device @{}", source.device->ID);
    std::this_thread::sleep_for(50ms);
    initDevice(source);
}

void stopSource(const DeviceRef &source)
{
    auto run = liveRun(*source.context);
    if (!run) return;
    logDeb(LogCategory::Progress, "Stop measurement @{}", source.device->ID);
    std::this_thread::sleep_for(50ms);
    source.context->Description.StopReason = StopReason::Manual;
    source.context->AbortRequested = true;
    source.context->StopRequested = true;
    waitOver(*run, 10s);
}

// The acquisition time is that of the source's last run, taken as seconds.
void startSource(const DeviceRef &source)
{
    logDeb(LogCategory::Progress, "Start measurement @{}", source.device->ID);
    std::this_thread::sleep_for(50ms);
    const uint64_t acqTime =
        static_cast<uint64_t>(std::max(source.context->Description.AcqTime.load(), 0)) * 1000;
    startMeasurement(source, {.Kind = MeasKind::ImportSource,
                              .AcqTimeMs = static_cast<uint32_t>(
                                  std::min<uint64_t>(acqTime, std::numeric_limits<uint32_t>::max()))});
    for (int turn = 0; turn < 1000 && !source.context->Measuring && liveRun(*source.context); ++turn)
        std::this_thread::sleep_for(10ms);
}

void prepareSource(const DeviceRef &target, const Manipulator &record)
{
    const DeviceRef source = findDevice(record.SourceId);
    if (source.device->ID.empty()) {
        reportDeviceError(LogCategory::General, "Manipulator '{}': Import Device '{}' not found!", record.Name,
                          record.SourceId);
        return;
    }
    if (importsFrom(source, target.device->ID)) {
        reportDeviceError(LogCategory::General,
                          "Manipulator '{}': Import Device '{}' needs this device's events!", record.Name,
                          record.SourceId);
        return;
    }
    if (!isUsable(*source.device) && !isFile(*source.device)) initSource(source);
    stopSource(source);
    if (isUsable(*source.device)) startSource(source);
}

} // namespace

void prepareImportSources(const DeviceRef &target)
{
    for (const auto &record : chainOf(*target.context)) {
        const bool starts = record->Params2.empty() || record->Params2.front() != 0;
        if (record->Type == ManisType::ImportStream && record->Enabled && starts)
            prepareSource(target, *record);
    }
}

} // namespace Tessel
