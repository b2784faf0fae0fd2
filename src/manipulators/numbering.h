// Which channels a chain makes, and which stage writes to which.
#pragma once

#include "records/refs.h"

#include <cstdint>

namespace Tessel {

// Channels of a stream, the sync included; the code above them is that of overflow records.
inline constexpr uint64_t maxChannels = 255;

// Channels of a stream that has passed this chain.
uint64_t channelsMade(const Device &device, const std::vector<std::shared_ptr<Manipulator>> &chain);

// Sets the places of the stages and where each writes; every lock of the chain is held.
void linkRecords(std::vector<std::shared_ptr<Manipulator>> &chain);

} // namespace Tessel
