// The chain of a device as JSON.
#pragma once

#include "records/context.h"

#include <string>

namespace Tessel {

// What each stage is and which channels it has.
std::string stringifyManisConfig(MeasContext &context);

// What each stage was added with, times in ps, in the form that the program reads.
std::string stringifyStages(MeasContext &context);

} // namespace Tessel
