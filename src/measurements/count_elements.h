// Counting of elements that were worked out before. No lock and no thread.
#pragma once

#include <cstdint>

namespace Tessel {

// Four in a turn: an increment is little beside the loop around it.
template <class Count>
inline void countElements(const uint32_t *elements, uint64_t found, Count *counts)
{
    uint64_t i = 0;
    for (; i + 4 <= found; i += 4) {
        ++counts[elements[i]];
        ++counts[elements[i + 1]];
        ++counts[elements[i + 2]];
        ++counts[elements[i + 3]];
    }
    for (; i < found; ++i) ++counts[elements[i]];
}

} // namespace Tessel
