// The events of each channel that a run has counted so far, all of them: by a time trace, whose new bins are
// added up before they leave it.
#pragma once

#include "commands/measure.h"
#include "program/growing.h"

#include <cstdint>
#include <vector>

namespace Tessel::Cli {

struct EventCounter
{
    Growing<uint32_t> Trace;
    uint64_t EndBin = 0;          // the library's: number of the bin after the last column
    uint64_t NumAdded = 0;        // bins in Totals
    std::vector<uint64_t> Totals; // by row
};

void startCounting(EventCounter &counter, const Recording &recording, const RunStart &run);

// To be called often enough: at least every ten seconds, and once when the run has ended.
void addNewBins(EventCounter &counter, bool hasEnded);

} // namespace Tessel::Cli
