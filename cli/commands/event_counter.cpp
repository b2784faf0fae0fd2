#include "commands/event_counter.h"

#include "tessel.h"

#include <algorithm>
#include <numeric>

namespace Tessel::Cli {

namespace {

constexpr int traceBins = 1024;
constexpr double binSeconds = 0.02;

using Bins = std::vector<uint32_t>; // row after row

// The newest bins.
Bins newestBins(const EventCounter &counter, uint64_t count)
{
    Bins bins(counter.Totals.size() * count);
    for (size_t row = 0; row < counter.Totals.size(); ++row)
        copyGrowing(counter.Trace.Numbers.data() + (row + 1) * traceBins - count, bins.data() + row * count,
                    count);
    return bins;
}

} // namespace

void startCounting(EventCounter &counter, const Recording &recording, const RunStart &run)
{
    const auto rows = static_cast<size_t>(recording.NumRows);
    counter = {};
    counter.Totals.assign(rows, 0);
    Bins empty(rows * traceBins);
    setTimeTraceNumBins(nullptr, traceBins);
    setTimeTraceHistorySize(nullptr, traceBins * binSeconds);
    getTimeTrace(nullptr, static_cast<uint32_t>(run.AcqTimeMs), 0, run.Save, counter.Trace.begin(empty),
                 &counter.EndBin, run.Finished);
}

void addNewBins(EventCounter &counter, bool hasEnded)
{
    const uint64_t end = readGrowing(counter.EndBin);
    if (end <= counter.NumAdded) return;
    const uint64_t count = std::min<uint64_t>(end - counter.NumAdded, traceBins);
    const Bins bins = newestBins(counter, count);
    // While the library moves the bins on, two looks differ: the next call sees them at rest.
    if (!hasEnded && (bins != newestBins(counter, count) || readGrowing(counter.EndBin) != end)) return;
    for (size_t row = 0; row < counter.Totals.size(); ++row) {
        const auto first = bins.begin() + static_cast<ptrdiff_t>(row * count);
        counter.Totals[row] =
            std::accumulate(first, first + static_cast<ptrdiff_t>(count), counter.Totals[row]);
    }
    counter.NumAdded = end;
}

} // namespace Tessel::Cli
