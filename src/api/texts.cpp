#include "api/exports.h"
#include "config/description_json.h"
#include "config/device_json.h"
#include "config/manipulators_json.h"

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
        std::string text = stringifyJsonDevConfig(target->device, stateOf(target->device));
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
