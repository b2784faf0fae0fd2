// A look at single events: when they came, and how long after their sync (T3) or the event before (T2).
#pragma once

#include "program/plot.h"
#include "program/session.h"

#include <cstdint>
#include <vector>

namespace Tessel::Cli {

// The first events of a recording that have a row, as many as a plot shows apart.
struct FirstEvents
{
    static constexpr size_t Most = 5000;

    std::vector<uint64_t> Times; // T2: ps; T3: sync number << 15 | dtime
    std::vector<uint8_t> Channels;

    bool isFull() const { return Times.size() == Most; }
};

void add(FirstEvents &events, uint64_t time, uint8_t channel);

Plot eventPlot(const FirstEvents &events, const Recording &recording);

} // namespace Tessel::Cli
