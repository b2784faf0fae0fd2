// The result of `tessel histogram` as text: CSV and JSON.
#pragma once

#include "commands/measure.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Cli {

// Counts by row and bin; row 0 is the sync, row n input channel n.
struct Histogram
{
    uint64_t NumBins = 0;
    double BinWidthPs = 1;   // T3: the resolution, which may have a fraction
    double SyncPeriodPs = 0; // T3; 0: unknown
    int RefChan = 0;         // T2
    std::vector<uint32_t> Counts;

    std::span<const uint32_t> row(int64_t index) const
    {
        return std::span(Counts).subspan(static_cast<size_t>(index) * NumBins, NumBins);
    }
};

std::string histogramCsv(const Histogram &histogram, const Measured &measured);
boost::json::object histogramJson(const Histogram &histogram, const Measured &measured);

} // namespace Tessel::Cli
