// The texts of a device's enumerations, as log lines and JSON show them.
#pragma once

#include "records/enums.h"

#include <string>
#include <string_view>

namespace Tessel {

std::string libTypeText(LibType type);
std::string_view stopReasonText(StopReason reason);

} // namespace Tessel
