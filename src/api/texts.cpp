#include "api/exports.h"
#include "config/description_json.h"
#include "config/device_json.h"
#include "config/losses_json.h"
#include "config/manipulators_json.h"
#include "config/settings_json.h"
#include "devices/locked_device.h"

#include <optional>
#include <string>

using namespace Tessel;

namespace {

constexpr TextRule deviceConfigRule = {65535, "Device config string is to long!", "Device config is empty!",
                                       false};
constexpr TextRule manisConfigRule = {65535, "Manipulator config string is to long!",
                                      "Manipulator config is empty!", false};
constexpr TextRule descriptionRule = {65535, "MeasDescription config string is to long!",
                                      "MeasDescription config is empty!", false};

} // namespace

bool getDeviceConfig(char *buffer)
{
    return guarded("getDeviceConfig", false, [&] {
        DeviceRef target = currentDevice();
        std::string text = stringifyJsonDevConfig(target->device);
        if (LogLevel.Api) logInf(LogCategory::Progress, "API getDeviceConfig {}", text.size() + 1);
        return handOut(text, buffer, deviceConfigRule);
    });
}

bool getMeasDescription(char *buffer)
{
    return guarded("getMeasDescription", false, [&] {
        DeviceRef target = currentDevice();
        std::string text = stringifyMeasDescription(target->context.Description);
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "API getMeasDescription {} @{}", text.size() + 1, target->device.ID);
        return handOut(text, buffer, descriptionRule);
    });
}

bool getManisConfig(char *buffer)
{
    return guarded("getManisConfig", false, [&] {
        return handOut(stringifyManisConfig(currentDevice()->context), buffer, manisConfigRule);
    });
}

namespace {

std::optional<std::string> textOfKind(const char16_t *id, int32_t which)
{
    if (which == TESSEL_TEXT_DEVICE_IDS) return stringifyDeviceIDs();
    if (which == TESSEL_TEXT_LIBRARIES) return stringifyLibraries();
    DeviceRef target = deviceOf(id);
    switch (which) {
    case TESSEL_TEXT_DEVICE: return stringifyJsonDevConfig(target->device);
    case TESSEL_TEXT_DESCRIPTION: return stringifyMeasDescription(target->context.Description);
    case TESSEL_TEXT_CHAIN: return stringifyManisConfig(target->context);
    case TESSEL_TEXT_STAGES: return stringifyStages(target->context);
    case TESSEL_TEXT_LOSSES: return stringifyLosses(lossesOf(target));
    case TESSEL_TEXT_SETTINGS: return stringifySettings(configOf(target->device));
    default: return std::nullopt;
    }
}

} // namespace

bool tessel_getText(const char16_t *id, int32_t which, char *text, uint64_t capacity, uint64_t *needed)
{
    if (needed) *needed = 0;
    return guarded("tessel_getText", false, [&] {
        const auto found = textOfKind(id, which);
        if (!found) {
            logErr(LogCategory::General, "There is no text {} of a device!", which);
            return false;
        }
        if (needed) *needed = found->size() + 1;
        if (!text || capacity <= found->size()) return false;
        copyText(*found, text);
        return true;
    });
}
