// What is known of a stream's order in time so far.
#pragma once

#include <cstdint>

namespace Tessel {

// Units of its times: T2 ps, T3 syncs.
struct StreamOrder
{
    uint64_t StepsBack = 0;   // events earlier than the one before them
    uint64_t LargestStep = 0; // of an event, before the latest one so far
    uint64_t Last = 0, Latest = 0;
};

} // namespace Tessel
