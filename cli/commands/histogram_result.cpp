#include "commands/histogram_result.h"

#include "commands/result_head.h"
#include "commands/several.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace Tessel::Cli {

namespace {

std::vector<std::string> notes(const Histogram &histogram, const Measured &measured)
{
    std::vector<std::string> lines = firstNotes(measured, histogramSchema);
    lines.push_back(fmt::format("time in ps (start of the bin), counts per bin; {} bins of {} ps",
                                histogram.NumBins, histogram.BinWidthPs));
    if (measured.From.MeasMode == 2)
        lines.push_back(fmt::format("time since the last event of channel {}", histogram.RefChan));
    else if (histogram.SyncPeriodPs > 0)
        lines.push_back(
            fmt::format("time since the last sync; sync period {:.10g} ps", histogram.SyncPeriodPs));
    lines.push_back(lastNote(measured));
    return lines;
}

// What is drawn ends with the sync period, or with the last bin that has a count.
size_t shownBins(const Recording &recording, const Histogram &histogram)
{
    size_t last = 1;
    for (int64_t row = 0; row < recording.NumRows; ++row) last = std::max(last, usedBins(histogram.row(row)));
    const double period = histogram.SyncPeriodPs / histogram.BinWidthPs;
    return period >= 1 && period < static_cast<double>(last) ? static_cast<size_t>(period) : last;
}

std::vector<double> periodsIn(const boost::json::array &files)
{
    std::vector<double> periods;
    for (const auto &file : files)
        if (const auto &period = file.at("syncPeriodPs"); !period.is_null())
            periods.push_back(period.to_number<double>());
    return periods;
}

// 0: not all files have one.
double meanSyncPeriod(const boost::json::array &files)
{
    const std::vector<double> periods = periodsIn(files);
    if (periods.empty() || periods.size() < files.size()) return 0;
    return std::accumulate(periods.begin(), periods.end(), 0.0) / static_cast<double>(periods.size());
}

} // namespace

size_t usedBins(std::span<const uint32_t> counts)
{
    while (!counts.empty() && counts.back() == 0) counts = counts.first(counts.size() - 1);
    return counts.size();
}

std::string histogramCsv(const Histogram &histogram, const Measured &measured)
{
    std::vector<double> times(histogram.NumBins);
    for (size_t bin = 0; bin < times.size(); ++bin)
        times[bin] = static_cast<double>(bin) * histogram.BinWidthPs;
    std::vector<Column> columns = {{"time_ps", times}};
    for (int64_t row = 0; row < measured.From.NumRows; ++row)
        columns.push_back({columnName(measured.From, row), histogram.row(row)});
    return csvText(notes(histogram, measured), columns);
}

boost::json::object histogramJson(const Histogram &histogram, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, histogramSchema);
    result["bins"] = histogram.NumBins;
    result["binWidthPs"] = jsonNumber(histogram.BinWidthPs);
    result["syncPeriodPs"] = nullptr;
    if (histogram.SyncPeriodPs > 0) result["syncPeriodPs"] = jsonNumber(histogram.SyncPeriodPs);
    result["refChan"] = nullptr;
    if (measured.From.MeasMode == 2) result["refChan"] = histogram.RefChan;
    result["channels"] = channelsJson(measured.From, [&](int64_t row) { return histogram.row(row); });
    return result;
}

Plot histogramPlot(const Recording &recording, const Histogram &histogram)
{
    const size_t bins = shownBins(recording, histogram);
    const TimeAxis axis = timeAxis(static_cast<double>(bins) * histogram.BinWidthPs);
    Plot plot;
    plot.Title = plotTitle(recording);
    plot.XLabel =
        fmt::format("Time since the {} ({})", recording.MeasMode == 2 ? "reference" : "sync", axis.Unit);
    plot.YLabel = fmt::format("Counts per {}", timeText(histogram.BinWidthPs));
    plot.LogY = true;
    plot.XMax = static_cast<double>(bins) * histogram.BinWidthPs * axis.Factor;
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        const auto counts = histogram.row(row).first(bins);
        if (isAllZero(counts)) continue;
        const std::string name =
            fmt::format("{} ({})", rowName(recording, row), countText(static_cast<double>(total(counts))));
        plot.Curves.push_back(binCurve(name, counts, 0, histogram.BinWidthPs * axis.Factor));
    }
    return plot;
}

Histogram histogramIn(const boost::json::object &result)
{
    Histogram histogram{.NumBins = result.at("bins").to_number<uint64_t>(),
                        .BinWidthPs = result.at("binWidthPs").to_number<double>(),
                        .SyncPeriodPs = meanSyncPeriod(result.at("files").as_array()),
                        .Counts = {}};
    if (!result.at("refChan").is_null()) histogram.RefChan = result.at("refChan").to_number<int>();
    const auto &channels = result.at("channels").as_array();
    if (channels.size() != result.at("rows").as_array().size())
        throw Failure(Exit::Failed, "the result has other channels than rows");
    for (const auto &channel : channels) {
        const std::vector<uint32_t> counts = countsIn(channel.at("counts"), histogram.NumBins);
        histogram.Counts.insert(histogram.Counts.end(), counts.begin(), counts.end());
    }
    return histogram;
}

std::vector<std::string> notesOnPeriods(const boost::json::array &files)
{
    constexpr double tolerance = 1e-6;
    const std::vector<double> periods = periodsIn(files);
    if (periods.empty()) return {};
    const auto [least, most] = std::ranges::minmax(periods);
    if (most / least - 1 <= tolerance) return {};
    return {
        fmt::format("the sync periods differ from file to file, from {:.12g} ps to {:.12g} ps", least, most)};
}

} // namespace Tessel::Cli
