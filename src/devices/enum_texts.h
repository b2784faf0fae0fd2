// The texts of a device's enumerations, as log lines and JSON show them.
#pragma once

#include "records/enums.h"

#include <string>
#include <string_view>

namespace Tessel {

std::string libTypeText(LibType type);
std::string_view stopReasonText(StopReason reason);
// The names of the bits that are set, each with a blank behind it.
std::string featuresText(uint32_t features);
std::string triggersText(uint32_t triggers);

} // namespace Tessel
