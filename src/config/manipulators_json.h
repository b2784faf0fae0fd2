// The chain of a device as JSON.
#pragma once

#include "pipeline/meas_context.h"

#include <string>

namespace Tessel {

std::string stringifyManisConfig(MeasContext &context);

} // namespace Tessel
