#include "devices/debug_info.h"

#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/libs/all.h"
#include "log/text.h"

namespace Tessel {

std::string GetDebugInfo(LockedDevice &locked)
{
    const Device &device = locked.device;
    if (device.DeviceType != DeviceType::Instrument) return {};
    TextRoom<65536> text;
    auto read = [&] {
        switch (device.LibType) {
        case LibType::ZP: return zp.GetDebugInfo(device.Index, text.Bytes);
        case LibType::CD: return cd.GetHardwareDebugInfo(device.Index, text.Bytes);
        case LibType::SV40: return sv40.GetHardwareDebugInfo(device.Index, text.Bytes);
        case LibType::LM70: return lm70.GetDebugInfo(device.Index, text.Bytes);
        case LibType::CD90: return cd90.GetDebugInfo(device.Index, text.Bytes);
        default:
            logWrn(LogCategory::General, "GetDebugInfo is not supported for libType {} @{}",
                   libTypeText(device.LibType), device.ID);
            return -1;
        }
    };
    return read() < 0 ? std::string() : text.text();
}

bool hasDebugDump(const Device &device)
{
    return device.LibType == LibType::ZP || device.LibType == LibType::LM70 || device.LibType == LibType::CD90;
}

bool SaveDebugDump(LockedDevice &locked, std::string_view folder)
{
    const Device &device = locked.device;
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    const std::string shown = std::string(folder) + "\\", path = nativePath(shown).string();
    auto save = [&] {
        switch (device.LibType) {
        case LibType::ZP: return zp.SaveDebugDump(device.Index, path.c_str());
        case LibType::LM70: return lm70.SaveDebugDump(device.Index, path.c_str());
        case LibType::CD90: return cd90.SaveDebugDump(device.Index, path.c_str());
        default:
            logWrn(LogCategory::General, "SaveDebugDump is not supported for libType {} @{}",
                   libTypeText(device.LibType), device.ID);
            return 0;
        }
    };
    const int32_t result = save();
    if (result < 0) logWrn(LogCategory::General, "SaveDebugDump failed: {} ({})@{}", shown, result, device.ID);
    return result >= 0 && hasDebugDump(device);
}

} // namespace Tessel
