// The stages that a host can add, one function a kind. Each returns the number of its first output channel, or
// -1, with an error in the log, if the stream has no room for more channels.
#pragma once

#include "api/library.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Tessel {

// The low byte of each element, as channel numbers are kept.
std::vector<uint8_t> channelBytes(std::span<const int32_t> channels);

int32_t addMerge(const DeviceRef &target, std::span<const int32_t> channels, bool keep);

} // namespace Tessel
