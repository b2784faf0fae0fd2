// The result of `tessel histogram`: as CSV, JSON and plot, and read back.
#pragma once

#include "commands/measure.h"
#include "program/plot.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Cli {

constexpr const char *histogramSchema = "tessel.histogram/1";

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
Plot histogramPlot(const Recording &recording, const Histogram &histogram);

// What a result has. Throws Failure.
Histogram histogramIn(const boost::json::object &result);

// Of results that were added up: their sync periods differ.
std::vector<std::string> notesOnPeriods(const boost::json::array &files);

// Up to the last that has a count.
size_t usedBins(std::span<const uint32_t> counts);

} // namespace Tessel::Cli
