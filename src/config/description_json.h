// The description of a device's last run as JSON.
#pragma once

#include "records/description.h"

#include <string>

namespace Tessel {

std::string stringifyMeasDescription(const MeasDescription &description);

} // namespace Tessel
