// `tessel histogram`: one histogram per channel of a recording.
#include "commands/commands.h"
#include "commands/doubts.h"
#include "commands/histogram_result.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/growing.h"
#include "program/instrument.h"
#include "program/output.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace Tessel::Cli {

namespace {

struct HistogramOptions
{
    MeasureOptions Measure;
    std::optional<int> RefChan;
    std::string BinWidth; // empty: as the recording has it
    std::optional<uint64_t> Bins;
    bool Hardware = false;
};

constexpr uint64_t defaultT2BinWidthPs = 100;
constexpr uint64_t mostBins = uint64_t(1) << 28;

// What is for T2, elsewhere.
void refuseT2Options(const HistogramOptions &options, const Recording &recording)
{
    const char *given = options.RefChan             ? "--ref-chan"
                        : !options.BinWidth.empty() ? "--bin-width"
                        : options.Bins              ? "--bins"
                                                    : nullptr;
    if (!given) return;
    if (options.Hardware)
        throw Failure(Exit::Usage, fmt::format("{} is for T2: the bins of --hardware are those of the settings "
                                               "binning and length-code",
                                               given));
    throw Failure(Exit::Usage,
                  fmt::format("{} is for T2, and {} is a T3 {}", given, visibleText(recording.Path),
                              recording.isLive() ? "instrument" : "recording"));
}

uint64_t binWidth(const HistogramOptions &options)
{
    return options.BinWidth.empty() ? defaultT2BinWidthPs : optionWholePs("--bin-width", options.BinWidth, 1);
}

Histogram shaped(const HistogramOptions &options, const Recording &recording)
{
    Histogram histogram;
    if (recording.MeasMode != 2) {
        refuseT2Options(options, recording);
        histogram.BinWidthPs = recording.ResolutionPs;
        histogram.SyncPeriodPs = recording.SyncPeriodPs;
    } else {
        histogram.RefChan = options.RefChan.value_or(0);
        checkChannel("--ref-chan", histogram.RefChan, recording);
        histogram.BinWidthPs = static_cast<double>(binWidth(options));
        setHistoT2RefChan(nullptr, static_cast<uint8_t>(histogram.RefChan));
        setHistoT2BinWidth(nullptr, binWidth(options));
        if (options.Bins) setHistoT2NumBins(nullptr, *options.Bins);
    }
    histogram.NumBins = deviceConfig().at("NumBins").to_number<uint64_t>();
    histogram.Counts.assign(static_cast<size_t>(recording.NumRows) * histogram.NumBins, 0);
    return histogram;
}

// Sync periods of the run; 0: unknown.
double periodsOf(const Measured &measured)
{
    const auto &run = measured.From.isLive() ? runDescription() : measured.From.Description;
    return run.at("StopAfter").to_number<double>() * 1e-3 * run.at("AveSyncRate").to_number<double>();
}

std::vector<std::string> doubtsOn(const Histogram &histogram, const Measured &measured)
{
    std::vector<std::string> notes;
    const Recording &recording = measured.From;
    if (recording.MeasMode == 2) {
        doubtBinWidth(notes, "--bin-width", histogram.BinWidthPs, recording);
        return notes;
    }
    if (recording.MeasMode != 3 || histogram.SyncPeriodPs <= 0) return notes;
    const double inPeriod = std::ceil(histogram.SyncPeriodPs / histogram.BinWidthPs);
    const auto bins = static_cast<size_t>(std::min(inPeriod, static_cast<double>(histogram.NumBins)));
    uint64_t beyond = 0;
    size_t last = 0; // bins, with the last that has counts
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        beyond += total(histogram.row(row).subspan(bins));
        last = std::max(last, usedBins(histogram.row(row)));
        doubtPileUp(notes, rowName(recording, row), static_cast<double>(total(histogram.row(row))),
                    periodsOf(measured));
    }
    doubtDtimes(notes, beyond, static_cast<double>(last) * histogram.BinWidthPs, histogram.SyncPeriodPs);
    return notes;
}

// The instrument builds the histograms; there is no stream.
MeasureOptions forHardware(const HistogramOptions &options, const HostOptions &host)
{
    MeasureOptions measure = options.Measure;
    const char *other = !host.namesInstrument()        ? "a recording"
                        : !measure.Mode.empty()        ? "--mode"
                        : !measure.Chain.Texts.empty() ? "--chain"
                        : !measure.Chain.Sort.empty()  ? "--sort"
                        : !measure.Chain.From.empty()  ? "--from"
                        : !measure.Chain.To.empty()    ? "--to"
                        : !measure.RecordFile.empty()  ? "--record"
                                                       : nullptr;
    if (other)
        throw Failure(Exit::Usage, fmt::format("--hardware and {}: the instrument's own histograms have no "
                                               "stream of events",
                                               other));
    measure.Mode = histogramMode;
    return measure;
}

Measurement stepsOf(const HistogramOptions &options, Histogram &histogram, Growing<uint32_t> &counts)
{
    return {.Prepare = [&](const Recording &recording) { histogram = shaped(options, recording); },
            .Start =
                [&](const RunStart &run) {
                    getHistogram(nullptr, static_cast<uint32_t>(run.AcqTimeMs), 0, run.Save,
                                 counts.begin(histogram.Counts), run.Finished);
                },
            .Take = [&](bool hasEnded) { counts.take(histogram.Counts, hasEnded); },
            .IsEmpty = [&] { return isAllZero(histogram.Counts); },
            .Needs = "events, in T2 after one on --ref-chan",
            .Csv = [&](const Measured &measured) { return histogramCsv(histogram, measured); },
            .Json = [&](const Measured &measured) { return histogramJson(histogram, measured); },
            .Plot = [&](const Measured &measured) { return histogramPlot(measured.From, histogram); },
            .Notes = [&](const Measured &measured) { return doubtsOn(histogram, measured); },
            .Load = [&](const boost::json::object &result) { histogram = histogramIn(result); },
            .FileKeys =
                [&](const Measured &measured) {
                    boost::json::object keys = {{"syncPeriodPs", nullptr}};
                    keys["rates"] = ratesOfRows(measured.From, secondsOf(measured),
                                                [&](int64_t row) { return histogram.row(row); });
                    if (histogram.SyncPeriodPs > 0) keys["syncPeriodPs"] = jsonNumber(histogram.SyncPeriodPs);
                    return keys;
                },
            .SumNotes = notesOnPeriods};
}

int runHistogram(const HistogramOptions &options, const HostOptions &host)
{
    const MeasureOptions source = options.Hardware ? forHardware(options, host) : options.Measure;
    Histogram histogram;
    Growing<uint32_t> counts;
    return measure(source, host, stepsOf(options, histogram, counts));
}

int writeHistogramSum(const HistogramOptions &options, boost::json::object sum, int code)
{
    Histogram histogram;
    Growing<uint32_t> counts;
    return writeSum(options.Measure, stepsOf(options, histogram, counts), std::move(sum), code);
}

constexpr ResultHelp histogramHelp = {
    .About =
        R"(T3: a bin is a dtime; there are 32768 bins, as wide as the recording's resolution.
T2: an event counts in the bin of its time since the last event of the reference channel.
--hardware: the instrument counts by itself, in bins of its resolution; --set binning=2 makes them
wider, --set length-code=3 sets how many there are, --set stop-count=65535 ends at a full bin.)",
    .Csv = "a line per bin: time_ps (its start), then\nthe counts of sync, ch1, ch2, ...; empty bins too",
    .Schema = histogramSchema,
    .Keys = R"(  bins          number of bins of a channel
  binWidthPs    width of a bin
  syncPeriodPs  T3: mean period of the sync; T2: null
  refChan       T2: reference channel; T3: null
  channels      [{row, name, total, counts [bins]}]; row 0 is the sync, row n input n)",
    .Examples = R"(  tessel histogram decay.tgx -o decay.csv --plot decay.png
  tessel histogram emitter.tgx --ref-chan 1 --bin-width 500ps --bins 400
  tessel histogram --sim --live
  tessel histogram --sim --hardware --for 10s --set binning=3 -o decay.csv)"};

} // namespace

Command addHistogram(CLI::App &program)
{
    const auto options = std::make_shared<HistogramOptions>();
    CLI::App *command = program.add_subcommand(
        "histogram", "Count the events of each channel by time since the sync or a reference");
    addMeasurementOptions(*command, options->Measure);
    options->Measure.CountsDtimes = true;
    addUpdateOptions(*command, options->Measure.Updates);
    asChannel(
        command->add_option("--ref-chan", options->RefChan, "T2: reference channel; by default 0 (sync)"));
    asTime(command->add_option("--bin-width", options->BinWidth, "T2: width of a bin; by default 100ps"));
    asNumber(command->add_option("--bins", options->Bins, "T2: number of bins; by default 65536"), 1, mostBins);
    command->add_flag("--hardware", options->Hardware, "Let the instrument build the histograms");
    command->footer(helpText(histogramHelp));
    return {command, [options](const HostOptions &host) { return runHistogram(*options, host); },
            [options](boost::json::object sum, int code) {
                return writeHistogramSum(*options, std::move(sum), code);
            }};
}

} // namespace Tessel::Cli
