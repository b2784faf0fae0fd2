// Whether the times of a stream go back. No lock and no thread.
#pragma once

#include "records/stream_order.h"
#include "stream/words.h"

#include <cstdint>

namespace Tessel {

// True if any difference of neighbours is negative; `before`: the time before the first. The lowest `shift`
// bits don't count: the dtimes of one sync may come in any order.
bool hasStepBack(const uint64_t *times, uint64_t count, uint64_t before, int shift);

void noteOrder(StreamOrder &order, const uint64_t *times, const uint8_t *channels, uint64_t count, int shift);

// The same for events that are in order among themselves, by the times of the first and the last of them.
// False, and nothing is noted: they don't follow in order.
bool followsInOrder(StreamOrder &order, uint64_t first, uint64_t last);

// `decode` in pieces that stay in the cache, in which the order is looked at.
uint64_t decodeInOrder(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                       uint64_t *times, uint8_t *channels, InvalidWords &invalid, StreamOrder &order);

} // namespace Tessel
