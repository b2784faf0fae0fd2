// Counts the events of a correlation one by one, each scan and walk as it is defined: what the block loops are
// compared with.
#pragma once

#include "measurements/correlation_count.h"

namespace Plain {

inline void countCorrelationPlain(Tessel::CorrelationWork &work, const Tessel::TimedEvents &events)
{
    if (work.Params.CorrMode == Tessel::CorrMode::G2) return countG2Events(work, events);
    const auto count = work.Params.CorrMode == Tessel::CorrMode::FFCS ? Tessel::walkLags : Tessel::scanLags;
    for (uint64_t i = 0; i < events.Count; ++i)
        if (isCorrelated(work.Params, events.Channels[i]))
            countLagsEvent(work, Tessel::correlated(work.Params, events.Times[i], events.Channels[i]), count);
}

} // namespace Plain
