// What all measurements that count into the caller's array do with it. ManisLock is held.
#pragma once

#include "measurements/measurement_steps.h"

#include <algorithm>

namespace Tessel {

inline void clear(CountArray &counts)
{
    std::fill_n(counts.Data, counts.Rows * counts.Columns, 0u);
}

inline void size(CountArray &counts, const ResultShape &shape)
{
    counts.Rows = counts.Data && shape.Columns ? shape.Rows : 0;
    counts.Columns = shape.Columns;
    clear(counts);
}

} // namespace Tessel
