// The picture of a run in the terminal: what is measured and how far it has come, rates, and the result.
#pragma once

#include "commands/measure.h"
#include "program/frame.h"
#include "program/instrument.h"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace Tessel::Cli {

// What a run shows beside its result.
struct LiveState
{
    CountRates Rates;
    double Began = 0;                             // s since the start: when nothing had been read yet
    std::deque<std::pair<double, uint64_t>> Past; // s since the start and records, of about the last second
    std::string Lost;                             // of an instrument: how much, in words
};

// What the run on the current device has come to after this time.
void refresh(LiveState &state, Measured &measured, double seconds);

// Time, records, how fast they come, the file.
std::vector<FrameItem> statusItems(const LiveState &state, const Measured &measured);

// Name and rate of the sync and the inputs.
std::vector<FrameItem> rateItems(const Recording &recording, const CountRates &rates);

// Status, rates and plot, each in its part of the frame; in a small one what comes first stays.
void drawMeasuring(Frame &frame, const LiveState &state, const Measured &measured, const Plot &plot);

} // namespace Tessel::Cli
