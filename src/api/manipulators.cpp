#include "api/exports.h"
#include "manipulators/chain.h"
#include "manipulators/stages.h"

#include <span>

using namespace Tessel;

namespace {

std::span<const int32_t> channelList(const int32_t *channels, int32_t count)
{
    return channels && count > 0 ? std::span(channels, static_cast<size_t>(count)) : std::span<const int32_t>();
}

} // namespace

int32_t addMMerge(const char16_t *id, const int32_t *chans, int32_t numChans, uint8_t keep)
{
    return guarded("addMMerge", -1,
                   [&] { return addMerge(deviceOf(id), channelList(chans, numChans), keep != 0); });
}

void deleteMani(const char16_t *id, uint32_t index)
{
    guarded("deleteMani", [&] { endStage(deviceOf(id), index); });
}

void clearManis(const char16_t *id)
{
    guarded("clearManis", [&] {
        DeviceRef target = deviceOf(id);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API clearManis @{}", target.device->ID);
        removeStages(target);
    });
}
