#include "api/exports.h"

#include "devices/locked_device.h"
#include "log/text.h"

#include <cstring>

namespace Tessel {

void logFailedCall(const char *name, const char *why) noexcept
{
    logErr(LogCategory::General, "API {} failed: {}", name, why);
}

DeviceRef deviceOf(const char16_t *id)
{
    if (textOf(id).empty()) return currentDevice();
    DeviceRef found = findDevice(toUtf8(textOf(id)));
    makeCurrent(found);
    return found;
}

int32_t modeOf(const Device &device)
{
    return static_cast<int32_t>(valueOf(device, &DeviceConfig::MeasMode));
}

void copyText(std::string_view text, char *buffer)
{
    if (!buffer) return;
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
}

bool handOut(std::string_view text, char *buffer, const TextRule &rule)
{
    size_t size = text.size() + 1;
    if (size > rule.LargestSize) {
        copyText(rule.TooLong, buffer);
        return false;
    }
    if (size < 2) {
        copyText(rule.Empty, buffer);
        return rule.EmptyIsSuccess;
    }
    copyText(text, buffer);
    return true;
}

} // namespace Tessel
