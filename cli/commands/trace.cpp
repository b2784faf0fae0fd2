// `tessel trace`: counts of every channel in bins of time.
#include "commands/commands.h"
#include "commands/doubts.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "program/exit_codes.h"
#include "program/growing.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *traceSchema = "tessel.trace/1";
constexpr uint64_t mostCounts = uint64_t(1) << 31; // rows x bins

struct TraceOptions
{
    MeasureOptions Measure;
    int Bins = 1000;
    std::string History = "10s";
};

// Counts by row and column; the last column is the newest bin. There is one column more than asked for, at the
// left: the library publishes nothing if it has only one.
struct Trace
{
    uint64_t NumBins = 0, BinWidthPs = 0; // asked for
    std::vector<std::string> Notes;
    uint64_t EndBin = 0; // absolute number of the bin after the last column
    std::vector<uint32_t> Counts;

    // Columns that lie before the start of the run are left out.
    uint64_t numShown() const { return std::min(NumBins, EndBin); }
    uint64_t firstShown() const { return EndBin - numShown(); }
    std::span<const uint32_t> row(int64_t index) const
    {
        const uint64_t end = (static_cast<uint64_t>(index) + 1) * (NumBins + 1);
        return std::span(Counts).subspan(end - numShown(), numShown());
    }
};

Trace prepared(const TraceOptions &options, const Recording &recording)
{
    const uint64_t history = optionWholePs("--history", options.History, 1);
    Trace trace;
    trace.NumBins = static_cast<uint64_t>(options.Bins);
    trace.BinWidthPs = history / trace.NumBins;
    if (trace.BinWidthPs == 0) throw Failure(Exit::Usage, "--history: at least 1 ps for each of the --bins");
    doubtWindow(trace.Notes, "--history", history, trace.NumBins * trace.BinWidthPs);
    doubtBinWidth(trace.Notes, "--history / --bins", static_cast<double>(trace.BinWidthPs), recording);
    const uint64_t counts = (trace.NumBins + 1) * static_cast<uint64_t>(recording.NumRows);
    if (counts > mostCounts)
        throw Failure(Exit::Usage,
                      fmt::format("--bins: {} of {} channels are too many", trace.NumBins, recording.NumRows));
    // Half a picosecond a bin keeps the width clear of the rounding of seconds.
    const double span = (static_cast<double>(trace.BinWidthPs) + 0.5) * static_cast<double>(trace.NumBins + 1);
    setTimeTraceNumBins(nullptr, options.Bins + 1);
    setTimeTraceHistorySize(nullptr, span * 1e-12);
    trace.Counts.assign(counts, 0);
    return trace;
}

std::string asCsv(const Trace &trace, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, traceSchema);
    notes.push_back(fmt::format("time in ps since the start of the run (start of the bin), counts per bin; the "
                                "last {} bins of {} ps",
                                trace.numShown(), trace.BinWidthPs));
    notes.push_back(lastNote(measured));
    std::vector<uint64_t> times(trace.numShown());
    for (size_t bin = 0; bin < times.size(); ++bin) times[bin] = (trace.firstShown() + bin) * trace.BinWidthPs;
    std::vector<Column> columns = {{"time_ps", times}};
    for (int64_t row = 0; row < measured.From.NumRows; ++row)
        columns.push_back({columnName(measured.From, row), trace.row(row)});
    return csvText(notes, columns);
}

boost::json::object asJson(const Trace &trace, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, traceSchema);
    result["bins"] = trace.numShown();
    result["binWidthPs"] = trace.BinWidthPs;
    result["firstBin"] = trace.firstShown();
    result["channels"] = channelsJson(measured.From, [&](int64_t row) { return trace.row(row); });
    return result;
}

Plot asPlot(const Trace &trace, const Measured &measured)
{
    const auto width = static_cast<double>(trace.BinWidthPs);
    const double from = static_cast<double>(trace.firstShown()) * width,
                 to = static_cast<double>(trace.EndBin) * width;
    const TimeAxis axis = timeAxis(to);
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = fmt::format("Time ({})", axis.Unit);
    plot.YLabel = fmt::format("Counts per {}", timeText(width));
    plot.Lines = true;
    plot.XMin = from * axis.Factor;
    plot.XMax = std::max(to, from + width) * axis.Factor;
    for (int64_t row = 0; row < measured.From.NumRows; ++row) {
        const auto counts = trace.row(row);
        if (isAllZero(counts)) continue;
        plot.Curves.push_back(
            binCurve(rowName(measured.From, row), counts, from * axis.Factor, width * axis.Factor));
    }
    return plot;
}

int runTrace(const TraceOptions &options, const HostOptions &host)
{
    Trace trace;
    Growing<uint32_t> counts;
    uint64_t endBin = 0;
    return measure(
        options.Measure, host,
        {.Prepare = [&](const Recording &recording) { trace = prepared(options, recording); },
         .Start =
             [&](const RunStart &run) {
                 getTimeTrace(nullptr, static_cast<uint32_t>(run.AcqTimeMs), 0, run.Save,
                              counts.begin(trace.Counts), &endBin, run.Finished);
             },
         .Take =
             [&](bool hasEnded) {
                 trace.EndBin = readGrowing(endBin);
                 counts.take(trace.Counts, hasEnded);
             },
         .IsEmpty = [&] { return isAllZero(trace.Counts); },
         .Needs = "events within --history",
         .Csv = [&](const Measured &measured) { return asCsv(trace, measured); },
         .Json = [&](const Measured &measured) { return asJson(trace, measured); },
         .Plot = [&](const Measured &measured) { return asPlot(trace, measured); },
         .Notes = [&](const Measured &) { return trace.Notes; },
         .FileKeys =
             [&](const Measured &measured) {
                 const double seconds = static_cast<double>(trace.numShown() * trace.BinWidthPs) * 1e-12;
                 return boost::json::object{{"rates", ratesOfRows(measured.From, seconds, [&](int64_t row) {
                                                 return trace.row(row);
                                             })}};
             }});
}

constexpr ResultHelp traceHelp = {
    .About =
        R"(Shows the last --history of the recording in --bins bins of equal width, cut to whole picoseconds.
If the history is longer than the recording, the trace begins with the recording.)",
    .Csv = "a line per bin: time_ps (its start), then\nthe counts of sync, ch1, ch2, ...",
    .Schema = traceSchema,
    .Keys = R"(  bins        number of bins of a channel
  binWidthPs  width of a bin
  firstBin    number of the first bin, counted from the start of the recording
  channels    [{row, name, total, counts [bins]}]; row 0 is the sync, row n input n)",
    .Examples = R"(  tessel trace blinking.tgx --history 60s --bins 6000 --plot trace.png
  tessel trace blinking.tgx --history 100ms --bins 100 --json | jq '.channels[1].counts')"};

} // namespace

Command addTrace(CLI::App &program)
{
    const auto options = std::make_shared<TraceOptions>();
    CLI::App *command = program.add_subcommand("trace", "Count the events of each channel in bins of time");
    addMeasurementOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    asNumber(command->add_option("--bins", options->Bins, "Number of bins"), 1, 1 << 28)->capture_default_str();
    asTime(command->add_option("--history", options->History, "Time that all bins span"));
    command->footer(helpText(traceHelp));
    return {command, [options](const HostOptions &host) { return runTrace(*options, host); }};
}

} // namespace Tessel::Cli
