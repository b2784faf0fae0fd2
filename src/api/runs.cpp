#include "api/exports.h"
#include "devices/primitives.h"
#include "devices/rates.h"
#include "manipulators/chain.h"
#include "measurements/clear.h"
#include "run/requests.h"
#include "session/open_close.h"
#include "settings/system_ini.h"
#include "threads/losses.h"

#include <algorithm>

using namespace Tessel;

bool tessel_setThreads(int32_t threads)
{
    return guarded("tessel_setThreads", false, [&] {
        if (LogLevel.Api) logInf(LogCategory::Progress, "API tessel_setThreads {}", threads);
        if (setCountingThreads(threads)) return true;
        logErr(LogCategory::General, "There is no run with {} threads!", threads);
        return false;
    });
}

bool stopMeasure(const char16_t *id)
{
    return guarded("stopMeasure", true, [&] {
        stopMeasurement(deviceOf(id)->context);
        return true;
    });
}

bool clearMeasure(const char16_t *id)
{
    return guarded("clearMeasure", true, [&] {
        Tessel::clearMeasure(deviceOf(id));
        return true;
    });
}

uint8_t gotNewData(const char16_t *id)
{
    return guarded("gotNewData", uint8_t{1}, [&] {
        confirmNewData(deviceOf(id)->context);
        return uint8_t{1};
    });
}

uint8_t waitNewData(const char16_t *id)
{
    return guarded("waitNewData", uint8_t{0},
                   [&] { return static_cast<uint8_t>(awaitNewData(deviceOf(id)->context)); });
}

void setSequenceMode(int32_t mode, uint8_t wait, double value)
{
    guarded("setSequenceMode", [&] { setSequence(currentDevice()->context, mode, wait != 0, value); });
}

int32_t getCountRates(int32_t *syncRate, int32_t *rates)
{
    return guarded("getCountRates", 0, [&] {
        DeviceRef target = currentDevice();
        if (target->device.DeviceType != DeviceType::None) readCountRates(target->device, target->context);
        const int32_t channels = valueOf(target->device, &DeviceConfig::NumChans);
        if (syncRate) *syncRate = target->context.SyncRate;
        const auto &known = target->context.CountRates;
        const auto inputs = static_cast<size_t>(std::max(channels, 0));
        for (size_t i = 0; rates && i < inputs; ++i) rates[i] = i < known.size() ? known[i].load() : 0;
        return channels;
    });
}

namespace {

std::string_view whyNoShape(const DeviceRef &target)
{
    if (target == noDevice()) return "there is no such device";
    if (!target->device.IsInitialized) return "the device isn't initialised";
    return "no measurement of this kind, or too many bins";
}

} // namespace

bool tessel_getResultShape(const char16_t *id, int32_t kind, uint64_t *rows, uint64_t *columns,
                           uint64_t *elementBytes)
{
    auto handOutShape = [&](const ResultShape &shape) {
        if (rows) *rows = shape.Rows;
        if (columns) *columns = shape.Columns;
        if (elementBytes) *elementBytes = shape.ElementBytes;
        return shape.ElementBytes != 0;
    };
    handOutShape({});
    return guarded("tessel_getResultShape", false, [&] {
        const DeviceRef target = deviceOf(id);
        if (handOutShape(resultShape(target, static_cast<MeasKind>(kind), deviceLookUp))) return true;
        logErr(LogCategory::General, "API tessel_getResultShape {}: {}", kind, whyNoShape(target));
        return false;
    });
}

namespace {

static_assert(lossPlaces == TESSEL_LOSS_PLACES);

tessel_loss toldLoss(const Loss &loss)
{
    return {.occasions = loss.Occasions,
            .lost = loss.Lost,
            .first = static_cast<double>(loss.FirstNs) / 1e9,
            .last = static_cast<double>(loss.LastNs) / 1e9};
}

tessel_losses toldLosses(const DeviceLosses &of, bool isLive)
{
    tessel_losses told = {.size = sizeof(tessel_losses),
                          .verdict = static_cast<int32_t>(of.Result.Verdict),
                          .recordingVerdict = 0,
                          .places = {}};
    std::ranges::transform(of.Result.Places, told.places, toldLoss);
    if (!of.Recording) return told;
    told.recordingVerdict = static_cast<int32_t>(of.Recording->Verdict);
    constexpr auto file = static_cast<size_t>(LossPlace::File);
    if (isLive) told.places[file] = toldLoss(of.Recording->Places[file]);
    return told;
}

} // namespace

bool tessel_getLosses(const char16_t *id, tessel_losses *losses)
{
    return guarded("tessel_getLosses", false, [&] {
        if (!losses || losses->size < sizeof(tessel_losses)) {
            logErr(LogCategory::General,
                   "API tessel_getLosses: no place for the losses, or of another version");
            return false;
        }
        DeviceRef target = deviceOf(id);
        const size_t size = losses->size;
        *losses = toldLosses(lossesOf(target), isInstrument(target->device));
        losses->size = size;
        if (target == noDevice()) logErr(LogCategory::General, "API tessel_getLosses: there is no such device");
        return target != noDevice();
    });
}

int64_t getNumAllChans(const char16_t *id)
{
    return guarded("getNumAllChans", int64_t{0}, [&] {
        DeviceRef target = deviceOf(id);
        return toldChans(target->device, target->context);
    });
}
