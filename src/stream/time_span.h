// How far a run of times lies within a span: what a stage can pass over, or copy, in one piece. No lock and no
// thread.
#pragma once

#include <cstdint>

namespace Tessel {

// How many of the times, from the first on, are at least `from` and below `to`.
uint64_t leadingWithin(const uint64_t *times, uint64_t count, uint64_t from, uint64_t to);

} // namespace Tessel
