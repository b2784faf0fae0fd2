#include "devices/result.h"

#include "devices/enum_texts.h"

namespace Tessel {

bool notSupported(const Device &device, std::string_view operation)
{
    logWrn(LogCategory::General, "Config: {} is not supported for libType {} @{}", operation,
           libTypeText(device.LibType), device.ID);
    return false;
}

} // namespace Tessel
