// `tessel histogram`: one histogram per channel of a recording.
#include "commands.h"
#include "console.h"
#include "exit_codes.h"
#include "output.h"
#include "plot.h"
#include "tessel.h"
#include "units.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>

namespace Tessel::Cli {

namespace {

struct HistogramOptions
{
    std::string File;
    ResultOptions Result;
    std::optional<int> RefChan;
    std::string BinWidth; // empty: as the recording has it
    std::optional<uint64_t> Bins;
};

// Counts by row and bin; row 0 is the sync, row n input channel n.
struct Histogram
{
    uint64_t NumBins = 0;
    double BinWidthPs = 1;
    double SyncPeriodPs = 0; // T3; 0: unknown
    std::vector<uint32_t> Counts;

    std::span<const uint32_t> row(int64_t index) const
    {
        return std::span(Counts).subspan(static_cast<size_t>(index) * NumBins, NumBins);
    }
};

constexpr uint64_t defaultT2BinWidthPs = 100;
constexpr uint64_t mostBins = uint64_t(1) << 28;

void refuseInT3(const HistogramOptions &options)
{
    const char *given = options.RefChan             ? "--ref-chan"
                        : !options.BinWidth.empty() ? "--bin-width"
                        : options.Bins              ? "--bins"
                                                    : nullptr;
    if (given)
        throw Failure(Exit::Usage, fmt::format("{} is for T2 recordings, and {} is one of T3", given,
                                               visibleText(options.File)));
}

uint64_t binWidth(const HistogramOptions &options)
{
    if (options.BinWidth.empty()) return defaultT2BinWidthPs;
    const double width = optionValue("--bin-width", [&] { return parseTimePs(options.BinWidth, "ps"); });
    if (width < 1 || width != std::floor(width) || width > 1e18)
        throw Failure(Exit::Usage, "--bin-width: whole picoseconds, at least 1ps");
    return static_cast<uint64_t>(width);
}

Histogram shaped(const HistogramOptions &options, const Recording &recording)
{
    Histogram histogram;
    if (recording.MeasMode == 3) {
        refuseInT3(options);
        histogram.BinWidthPs = recording.Config.at("Resolution").to_number<double>();
        const double rate = recording.Description.at("AveSyncRate").to_number<double>();
        if (rate > 0) histogram.SyncPeriodPs = 1e12 / rate;
    } else if (recording.MeasMode == 2) {
        const int refChan = options.RefChan.value_or(0);
        if (refChan >= recording.NumRows)
            throw Failure(Exit::Usage, fmt::format("--ref-chan {}: the recording has channels 0 (sync) to {}",
                                                   refChan, recording.NumRows - 1));
        histogram.BinWidthPs = static_cast<double>(binWidth(options));
        setHistoT2RefChan(nullptr, static_cast<uint8_t>(refChan));
        setHistoT2BinWidth(nullptr, binWidth(options));
        if (options.Bins) setHistoT2NumBins(nullptr, *options.Bins);
    } else {
        throw Failure(Exit::Failed, fmt::format("{}: a recording of mode {} has no events to count",
                                                visibleText(recording.Path), recording.MeasMode));
    }
    histogram.NumBins = deviceConfig().at("NumBins").to_number<uint64_t>();
    histogram.Counts.assign(static_cast<size_t>(recording.NumRows) * histogram.NumBins, 0);
    return histogram;
}

uint64_t total(std::span<const uint32_t> counts)
{
    return std::accumulate(counts.begin(), counts.end(), uint64_t(0));
}

std::vector<std::string> notes(const Recording &recording, const Histogram &histogram,
                               const HistogramOptions &options, const Outcome &outcome)
{
    std::vector<std::string> lines = {
        "tessel.histogram/1", fmt::format("file: {}", visibleText(recording.Path)),
        fmt::format("device: {}, T{}", visibleText(recording.Id), recording.MeasMode),
        fmt::format("time in ps (start of the bin), counts per bin; {} bins of {} ps", histogram.NumBins,
                    histogram.BinWidthPs)};
    if (recording.MeasMode == 2)
        lines.push_back(fmt::format("time since the last event of channel {}", options.RefChan.value_or(0)));
    else if (histogram.SyncPeriodPs > 0)
        lines.push_back(
            fmt::format("time since the last sync; sync period {:.10g} ps", histogram.SyncPeriodPs));
    lines.push_back(fmt::format("{} of {} records read{}", outcome.NumRead, recording.NumRecords,
                                outcome.Signal ? ", stopped by the user: a partial result" : ""));
    return lines;
}

std::string asCsv(const Recording &recording, const Histogram &histogram, const HistogramOptions &options,
                  const Outcome &outcome)
{
    std::vector<double> times(histogram.NumBins);
    for (size_t bin = 0; bin < times.size(); ++bin)
        times[bin] = static_cast<double>(bin) * histogram.BinWidthPs;
    std::vector<Column> columns = {{"time_ps", times}};
    for (int64_t row = 0; row < recording.NumRows; ++row)
        columns.push_back({row == 0 ? "sync" : fmt::format("ch{}", row), histogram.row(row)});
    return csvText(notes(recording, histogram, options, outcome), columns);
}

boost::json::object asJson(const Recording &recording, const Histogram &histogram,
                           const HistogramOptions &options, const Outcome &outcome)
{
    boost::json::array channels;
    for (int64_t row = 0; row < recording.NumRows; ++row)
        channels.push_back({{"row", row},
                            {"name", rowName(recording, row)},
                            {"total", total(histogram.row(row))},
                            {"counts", jsonArray({"", histogram.row(row)})}});
    boost::json::object result = {{"schema", "tessel.histogram/1"},
                                  {"file", recording.Path},
                                  {"device", recording.Id},
                                  {"mode", fmt::format("T{}", recording.MeasMode)},
                                  {"bins", histogram.NumBins},
                                  {"binWidthPs", static_cast<uint64_t>(histogram.BinWidthPs)},
                                  {"syncPeriodPs", nullptr},
                                  {"refChan", nullptr},
                                  {"run", outcomeJson(recording, outcome)},
                                  {"channels", std::move(channels)}};
    if (histogram.SyncPeriodPs > 0) result["syncPeriodPs"] = histogram.SyncPeriodPs;
    if (recording.MeasMode == 2) result["refChan"] = options.RefChan.value_or(0);
    return result;
}

// What is drawn ends with the sync period, or with the last bin that has a count.
size_t shownBins(const Recording &recording, const Histogram &histogram)
{
    size_t last = 1;
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        const auto counts = histogram.row(row);
        size_t bins = counts.size();
        while (bins > last && counts[bins - 1] == 0) --bins;
        last = std::max(last, bins);
    }
    const double period = histogram.SyncPeriodPs / histogram.BinWidthPs;
    return period >= 1 && period < static_cast<double>(last) ? static_cast<size_t>(period) : last;
}

struct Axis
{
    double Factor;
    const char *Unit;
};

Axis axisFor(double rangePs)
{
    if (rangePs < 2e3) return {1, "ps"};
    if (rangePs < 2e6) return {1e-3, "ns"};
    if (rangePs < 2e9) return {1e-6, "µs"};
    return {1e-9, "ms"};
}

Plot asPlot(const Recording &recording, const Histogram &histogram)
{
    const size_t bins = shownBins(recording, histogram);
    const Axis axis = axisFor(static_cast<double>(bins) * histogram.BinWidthPs);
    Plot plot;
    plot.Title = fmt::format("{}, T{}", visibleText(std::filesystem::path(recording.Path).filename().string()),
                             recording.MeasMode);
    plot.XLabel =
        fmt::format("Time since the {} ({})", recording.MeasMode == 3 ? "sync" : "reference", axis.Unit);
    plot.YLabel = fmt::format("Counts per {}", timeText(histogram.BinWidthPs));
    plot.LogY = true;
    plot.XMax = static_cast<double>(bins) * histogram.BinWidthPs * axis.Factor;
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        const auto counts = histogram.row(row).first(bins);
        if (total(counts) == 0) continue;
        Curve curve{.Name = fmt::format("{} ({})", rowName(recording, row),
                                        countText(static_cast<double>(total(counts)))),
                    .X = {},
                    .Y = {counts.begin(), counts.end()}};
        for (size_t bin = 0; bin < bins; ++bin)
            curve.X.push_back((static_cast<double>(bin) + 0.5) * histogram.BinWidthPs * axis.Factor);
        plot.Curves.push_back(std::move(curve));
    }
    return plot;
}

// A plot that fails is an error only if nothing else was written.
int drawResult(const HistogramOptions &options, const Plot &plot)
{
    try {
        drawPlot(plot, options.Result.PlotFile);
        note(fmt::format("{} drawn", visibleText(options.Result.PlotFile)));
        return 0;
    } catch (const Failure &failure) {
        if (!wantsText(options.Result)) throw;
        warn(failure.what());
        return 0;
    }
}

int runHistogram(const HistogramOptions &options, const HostOptions &host)
{
    checkPlotName(options.Result.PlotFile);
    const Session session(host);
    const Recording recording = openRecording(options.File);
    Histogram histogram = shaped(options, recording);
    const Outcome outcome = replay(recording, [&](uint8_t *finished) {
        getHistogram(nullptr, 0, 0, 0, histogram.Counts.data(), finished);
    });
    note(fmt::format("{} records in {:.2f} s, {} records/s", outcome.NumRead, outcome.Seconds,
                     countText(static_cast<double>(outcome.NumRead) / std::max(outcome.Seconds, 1e-9))));
    if (wantsText(options.Result))
        writeResult(options.Result.File, options.Result.Json
                                             ? jsonText(asJson(recording, histogram, options, outcome))
                                             : asCsv(recording, histogram, options, outcome));
    if (!options.Result.PlotFile.empty()) drawResult(options, asPlot(recording, histogram));
    return reportOutcome(recording, outcome);
}

constexpr const char *histogramFooter =
    R"(T3: a bin is a dtime; 32768 bins of the recording's resolution. T2: a bin counts the events
of a channel by their time since the last event of the reference channel; the bin width and
the number of bins are options.

CSV: comment lines with '#', one line of names (time_ps, sync, ch1, ch2, ...), one line per
bin; no bin is left out. JSON, schema tessel.histogram/1: file, device, mode, bins, binWidthPs,
syncPeriodPs (null in T2), refChan (null in T3), run {recordsRead, recordsInFile, complete,
stopReason}, channels [{row, name, total, counts [bins]}]. Rows: 0 sync, 1.. inputs.

Examples:
  tessel histogram decay.tgx -o decay.csv --plot decay.png
  tessel histogram emitter.tgx --ref-chan 1 --bin-width 500ps --bins 400)";

} // namespace

Command addHistogram(CLI::App &program)
{
    const auto options = std::make_shared<HistogramOptions>();
    CLI::App *command =
        program.add_subcommand("histogram", "Count the events of a recording into one histogram per channel");
    command->add_option("FILE", options->File, "The recording (.tgx)")->required();
    command->add_option("--ref-chan", options->RefChan, "T2: reference channel, 0 (sync) unless told")
        ->check(CLI::Range(0, 64));
    command->add_option("--bin-width", options->BinWidth, "T2: width of a bin, 100ps unless told, bare in ps")
        ->type_name("TIME");
    command->add_option("--bins", options->Bins, "T2: number of bins, 65536 unless told")
        ->check(CLI::Range(uint64_t(1), mostBins));
    addResultOptions(*command, options->Result);
    command->footer(histogramFooter);
    return {command, [options](const HostOptions &host) { return runHistogram(*options, host); }};
}

} // namespace Tessel::Cli
