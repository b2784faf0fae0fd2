// The chain of a device as JSON.
#pragma once

#include "records/context.h"

#include <string>

namespace Tessel {

std::string stringifyManisConfig(MeasContext &context);

} // namespace Tessel
