// Which channels a chain makes, and which stage writes to which.
#pragma once

#include "records/refs.h"

#include <cstdint>

namespace Tessel {

// Channels of a stream, the sync included; the code above them is that of overflow records.
inline constexpr uint64_t maxChannels = 255;

// Channels of a stream that has passed this chain.
uint64_t channelsMade(const Device &device, const std::vector<std::shared_ptr<Manipulator>> &chain);

struct StageNumbers
{
    std::vector<uint8_t> OutChans{};
    std::vector<int32_t> Params2{}; // of a CountRate
    std::vector<float> Rates{};     // the same
};

// All that a rearrangement gives a chain, made before anything is changed.
struct Numbering
{
    std::vector<StageNumbers> Stages{}; // in chain order
    uint64_t Inputs = 0;                // with the sync
    uint64_t Channels = 0;              // with those that the chain makes
    std::shared_ptr<Run> Grown{}; // the live run that gets Counts, since its own have too few rows; or null
    std::vector<uint32_t> Counts{};
};
// Every lock of the context's chain is held, here and below.
Numbering numberingOf(const Device &device, MeasContext &context,
                      const std::vector<std::shared_ptr<Manipulator>> &chain);
// The chain is the one that the numbering was made for.
void renumber(MeasContext &context, Numbering numbering) noexcept;

// Sets the places of the stages and where each writes; every lock of the chain is held.
void linkRecords(std::vector<std::shared_ptr<Manipulator>> &chain);

} // namespace Tessel
