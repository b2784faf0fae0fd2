// How many events of a correlation could be the later or the earlier one of a pair at each lag, which its
// normalisation needs. FCS and FFCS from the start. No lock and no thread.
#pragma once

#include "measurements/correlation_count.h"

namespace Tessel {

// Of a block that isn't counted yet.
void noteLagsPassed(CorrelationWork &work, const TimedEvents &events);

// At the end of the run, before the rings go.
void keepEarlier(CorrelationWork &work);

// By channel, for each edge of the grid. After a clear, and if the longest lag has to pass first, all counted.
std::vector<uint64_t> laterEvents(const CorrelationWork &work, size_t channel);
std::vector<uint64_t> earlierEvents(const CorrelationWork &work, size_t channel);

} // namespace Tessel
