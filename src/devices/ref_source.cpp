#include "devices/ref_source.h"

#include "log/log.h"

#include <algorithm>

namespace Tessel {

int32_t refSourceCode(const Device &device)
{
    switch (device.LibType) {
    case LibType::ZP:
    case LibType::CD90: return std::min(device.RefSource, 9);
    case LibType::CD: return std::min(device.RefSource, 1);
    case LibType::SV40: return 0;
    case LibType::LM70:
        if (device.RefSource > 9) return device.RefSource - 8;
        if (device.RefSource < 2) return device.RefSource;
        logWrn(LogCategory::General, "Config: Initialize is not supported for RefSource {} @{}",
               device.RefSource, device.ID);
        return 0;
    case LibType::Undefined:
    case LibType::Dummy: break;
    }
    logWrn(LogCategory::General, "Config: getRefsource is not supported for libType {} @{}",
           libTypeText(device.LibType), device.ID);
    return 0;
}

} // namespace Tessel
