// Whether the times of a stream go back. No lock and no thread.
#pragma once

#include "stream/words.h"

#include <cstdint>

namespace Tessel {

// True if any difference of neighbours is negative; `before`: the time before the first. The lowest `shift`
// bits don't count: the dtimes of one sync may come in any order.
bool hasStepBack(const uint64_t *times, uint64_t count, uint64_t before, int shift);

// What is known of a stream's order so far. Units of its times: T2 ps, T3 syncs.
struct StreamOrder
{
    uint64_t StepsBack = 0;   // events earlier than the one before them
    uint64_t LargestStep = 0; // of an event, before the latest one so far
    uint64_t Last = 0, Latest = 0;
};

void noteOrder(StreamOrder &order, const uint64_t *times, const uint8_t *channels, uint64_t count, int shift);

// `decode` in pieces that stay in the cache, in which the order is looked at.
uint64_t decodeInOrder(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                       uint64_t *times, uint8_t *channels, InvalidWords &invalid, StreamOrder &order);

} // namespace Tessel
