// `tessel hist2d`: pairs of events by the delays of both.
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
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <cmath>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *hist2dSchema = "tessel.hist2d/1";
constexpr uint64_t mostHist2dBins = uint64_t(1) << 28;

struct AxisOptions
{
    int Chan;
    std::string Offset = "0", BinWidth = "100ps";
    uint64_t Bins = 100;
};

// For pairs that come too early or too late after the one before.
struct RecoveryOptions
{
    std::string Min = "0", Max = "1s", OffsetX = "0", OffsetY = "0";
    double Slope = 0;
};

struct Hist2dOptions
{
    MeasureOptions Measure;
    int StartChan = 0;
    AxisOptions X{.Chan = 1}, Y{.Chan = 2};
    bool TimeOverThreshold = false;
    double Slope = 0;
    RecoveryOptions Recovery;
};

struct Axis
{
    uint64_t OffsetPs = 0, BinWidthPs = 1, NumBins = 0;
    double lengthPs() const { return static_cast<double>(NumBins * BinWidthPs); }
};

struct Recovery
{
    uint64_t MinPs = 0, MaxPs = 0, OffsetXPs = 0, OffsetYPs = 0;
};

struct Hist2d
{
    Axis X, Y;
    Cli::Recovery Recovery;
    std::vector<uint32_t> Counts; // Y.NumBins rows of X.NumBins

    std::span<const uint32_t> row(size_t index) const
    {
        return std::span(Counts).subspan(index * X.NumBins, X.NumBins);
    }
};

Axis axisOf(const AxisOptions &options, const std::string &letter, const Recording &recording)
{
    checkChannel(("--chan-" + letter).c_str(), options.Chan, recording);
    return {.OffsetPs = optionWholePs(("--offset-" + letter).c_str(), options.Offset, 0),
            .BinWidthPs = optionWholePs(("--bin-width-" + letter).c_str(), options.BinWidth, 1),
            .NumBins = options.Bins};
}

Recovery recoveryOf(const RecoveryOptions &options)
{
    return {.MinPs = optionWholePs("--recovery-min", options.Min, 0),
            .MaxPs = optionWholePs("--recovery-max", options.Max, 0),
            .OffsetXPs = optionWholePs("--recovery-offset-x", options.OffsetX, 0),
            .OffsetYPs = optionWholePs("--recovery-offset-y", options.OffsetY, 0)};
}

void checkFinite(const char *option, double value)
{
    if (!std::isfinite(value)) throw Failure(Exit::Usage, fmt::format("{}: a finite number", option));
}

void setHist2dParams(const Hist2dOptions &options, const Hist2d &histogram)
{
    const Axis &x = histogram.X, &y = histogram.Y;
    const Recovery &recovery = histogram.Recovery;
    setHisto2dParams(nullptr, static_cast<uint8_t>(options.StartChan), static_cast<uint8_t>(options.X.Chan),
                     static_cast<uint8_t>(options.Y.Chan), x.OffsetPs, y.OffsetPs, x.BinWidthPs, y.BinWidthPs,
                     x.NumBins, y.NumBins);
    setHisto2dTotMode(nullptr, options.TimeOverThreshold ? 1 : 0, options.Slope);
    setHisto2dRecoveryTimingCorrection(nullptr, recovery.MinPs, recovery.MaxPs, recovery.OffsetXPs,
                                       recovery.OffsetYPs, options.Recovery.Slope);
}

Hist2d prepared(const Hist2dOptions &options, const Recording &recording)
{
    checkChannel("--start-chan", options.StartChan, recording);
    checkFinite("--slope", options.Slope);
    checkFinite("--recovery-slope", options.Recovery.Slope);
    Hist2d histogram{.X = axisOf(options.X, "x", recording),
                     .Y = axisOf(options.Y, "y", recording),
                     .Recovery = recoveryOf(options.Recovery),
                     .Counts = {}};
    const Axis &x = histogram.X, &y = histogram.Y;
    if (x.NumBins * y.NumBins > mostHist2dBins)
        throw Failure(Exit::Usage,
                      fmt::format("--bins-x and --bins-y: at most {} bins in all", mostHist2dBins));
    setHist2dParams(options, histogram);
    histogram.Counts.assign(x.NumBins * y.NumBins, 0);
    return histogram;
}

// By what the times are counted.
std::vector<std::string> ruleNotes(const Hist2dOptions &options, const Hist2d &histogram, bool isT3)
{
    const Recovery &recovery = histogram.Recovery;
    const std::string reference = isT3 ? "sync" : fmt::format("last event of channel {}", options.StartChan);
    std::vector<std::string> notes = {fmt::format("times since the {}, less {} ps (x) and {} ps (y); slope {}",
                                                  reference, histogram.X.OffsetPs, histogram.Y.OffsetPs,
                                                  options.Slope)};
    if (recovery.OffsetXPs || recovery.OffsetYPs || options.Recovery.Slope != 0)
        notes.push_back(fmt::format("pairs sooner than {} ps or later than {} ps after the one before: {} ps "
                                    "added to x, {} ps to y, {} to the slope",
                                    recovery.MinPs, recovery.MaxPs, recovery.OffsetXPs, recovery.OffsetYPs,
                                    options.Recovery.Slope));
    return notes;
}

std::string asCsv(const Hist2dOptions &options, const Hist2d &histogram, const Measured &measured)
{
    const Axis &x = histogram.X, &y = histogram.Y;
    std::vector<std::string> notes = firstNotes(measured, hist2dSchema);
    notes.push_back(
        fmt::format("x: channel {}, {} bins of {} ps; y: {}, {} bins of {} ps; starts of the bins in "
                    "ps, {} counts in all",
                    options.X.Chan, x.NumBins, x.BinWidthPs,
                    options.TimeOverThreshold ? std::string("time over threshold")
                                              : fmt::format("channel {}", options.Y.Chan),
                    y.NumBins, y.BinWidthPs, total(histogram.Counts)));
    for (std::string &note : ruleNotes(options, histogram, measured.From.MeasMode == 3))
        notes.push_back(std::move(note));
    notes.push_back(lastNote(measured));
    std::vector<uint64_t> xs, ys;
    for (size_t i = 0; i < histogram.Counts.size(); ++i) {
        xs.push_back(i % x.NumBins * x.BinWidthPs);
        ys.push_back(i / x.NumBins * y.BinWidthPs);
    }
    const Column columns[] = {
        {"x_ps", xs}, {"y_ps", ys}, {"counts", std::span<const uint32_t>(histogram.Counts)}};
    return csvText(notes, columns);
}

boost::json::object axisJson(const Axis &axis, int channel)
{
    return {{"channel", channel},
            {"offsetPs", axis.OffsetPs},
            {"binWidthPs", axis.BinWidthPs},
            {"bins", axis.NumBins}};
}

boost::json::object recoveryJson(const Recovery &recovery, double slope)
{
    return {{"minPs", recovery.MinPs},
            {"maxPs", recovery.MaxPs},
            {"offsetXPs", recovery.OffsetXPs},
            {"offsetYPs", recovery.OffsetYPs},
            {"slope", slope}};
}

boost::json::object asJson(const Hist2dOptions &options, const Hist2d &histogram, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, hist2dSchema);
    result["startChan"] = nullptr;
    if (measured.From.MeasMode == 2) result["startChan"] = options.StartChan;
    result["x"] = axisJson(histogram.X, options.X.Chan);
    result["y"] = axisJson(histogram.Y, options.Y.Chan);
    result["timeOverThreshold"] = options.TimeOverThreshold;
    result["slope"] = options.Slope;
    result["recovery"] = recoveryJson(histogram.Recovery, options.Recovery.Slope);
    result["total"] = total(histogram.Counts);
    boost::json::array rows;
    for (size_t row = 0; row < histogram.Y.NumBins; ++row) rows.push_back(jsonArray({"", histogram.row(row)}));
    result["counts"] = std::move(rows);
    return result;
}

Plot asPlot(const Hist2dOptions &options, const Hist2d &histogram, const Measured &measured)
{
    const TimeAxis x = timeAxis(histogram.X.lengthPs()), y = timeAxis(histogram.Y.lengthPs());
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = fmt::format("{} ({})", rowName(measured.From, options.X.Chan), x.Unit);
    plot.YLabel = fmt::format("{} ({})",
                              options.TimeOverThreshold ? std::string("Time over threshold")
                                                        : rowName(measured.From, options.Y.Chan),
                              y.Unit);
    plot.Map = ColourMap{.Label = "Counts",
                         .Columns = histogram.X.NumBins,
                         .CellWidth = static_cast<double>(histogram.X.BinWidthPs) * x.Factor,
                         .CellHeight = static_cast<double>(histogram.Y.BinWidthPs) * y.Factor,
                         .Values = {histogram.Counts.begin(), histogram.Counts.end()}};
    return plot;
}

Axis axisIn(const boost::json::value &axis)
{
    return {.OffsetPs = axis.at("offsetPs").to_number<uint64_t>(),
            .BinWidthPs = axis.at("binWidthPs").to_number<uint64_t>(),
            .NumBins = axis.at("bins").to_number<uint64_t>()};
}

Hist2d hist2dIn(const boost::json::object &result)
{
    const auto &recovery = result.at("recovery");
    Hist2d histogram{.X = axisIn(result.at("x")),
                     .Y = axisIn(result.at("y")),
                     .Recovery = {.MinPs = recovery.at("minPs").to_number<uint64_t>(),
                                  .MaxPs = recovery.at("maxPs").to_number<uint64_t>(),
                                  .OffsetXPs = recovery.at("offsetXPs").to_number<uint64_t>(),
                                  .OffsetYPs = recovery.at("offsetYPs").to_number<uint64_t>()},
                     .Counts = {}};
    const auto &rows = result.at("counts").as_array();
    if (rows.size() != histogram.Y.NumBins)
        throw Failure(Exit::Failed, "the result has another number of counts");
    for (const auto &row : rows) {
        const std::vector<uint32_t> counts = countsIn(row, histogram.X.NumBins);
        histogram.Counts.insert(histogram.Counts.end(), counts.begin(), counts.end());
    }
    return histogram;
}

Measurement stepsOf(const Hist2dOptions &options, Hist2d &histogram, Growing<uint32_t> &counts)
{
    return {.Prepare = [&](const Recording &recording) { histogram = prepared(options, recording); },
            .Start =
                [&](const RunStart &run) {
                    get2dHistogram(nullptr, static_cast<uint32_t>(run.AcqTimeMs), 0, run.Save,
                                   counts.begin(histogram.Counts), run.Finished);
                },
            .Take = [&](bool hasEnded) { counts.take(histogram.Counts, hasEnded); },
            .IsEmpty = [&] { return isAllZero(histogram.Counts); },
            .Needs = "events on --chan-x and --chan-y inside the bins, in T2 after one on --start-chan",
            .Csv = [&](const Measured &measured) { return asCsv(options, histogram, measured); },
            .Json = [&](const Measured &measured) { return asJson(options, histogram, measured); },
            .Plot = [&](const Measured &measured) { return asPlot(options, histogram, measured); },
            .Notes =
                [&](const Measured &measured) {
                    std::vector<std::string> notes;
                    doubtBinWidth(notes, "--bin-width-x", static_cast<double>(histogram.X.BinWidthPs),
                                  measured.From);
                    doubtBinWidth(notes, "--bin-width-y", static_cast<double>(histogram.Y.BinWidthPs),
                                  measured.From);
                    return notes;
                },
            .Load = [&](const boost::json::object &result) { histogram = hist2dIn(result); },
            .FileKeys =
                [&](const Measured &measured) {
                    boost::json::object rates;
                    if (const double seconds = secondsOf(measured); seconds > 0)
                        rates["pairs"] = static_cast<double>(total(histogram.Counts)) / seconds;
                    return boost::json::object{{"rates", rates}};
                }};
}

int runHist2d(const Hist2dOptions &options, const HostOptions &host)
{
    Hist2d histogram;
    Growing<uint32_t> counts;
    return measure(options.Measure, host, stepsOf(options, histogram, counts));
}

int writeHist2dSum(const Hist2dOptions &options, boost::json::object sum, int code)
{
    Hist2d histogram;
    Growing<uint32_t> counts;
    return writeSum(options.Measure, stepsOf(options, histogram, counts), std::move(sum), code);
}

void addAxisOptions(CLI::App &command, AxisOptions &axis, const std::string &letter)
{
    asChannel(command.add_option("--chan-" + letter, axis.Chan, "Channel of " + letter))->capture_default_str();
    asTime(command.add_option("--offset-" + letter, axis.Offset, "Subtracted from the times of " + letter));
    asTime(command.add_option("--bin-width-" + letter, axis.BinWidth, "Width of a bin of " + letter));
    asNumber(command.add_option("--bins-" + letter, axis.Bins, "Number of bins of " + letter), 1,
             mostHist2dBins)
        ->capture_default_str();
}

void addRecoveryOptions(CLI::App &command, RecoveryOptions &recovery)
{
    asTime(command.add_option("--recovery-min", recovery.Min,
                              "A pair that comes sooner after the one before is corrected"));
    asTime(command.add_option("--recovery-max", recovery.Max,
                              "A pair that comes later after the one before is corrected"));
    asTime(command.add_option("--recovery-offset-x", recovery.OffsetX, "Corrected pairs: added to x"));
    asTime(command.add_option("--recovery-offset-y", recovery.OffsetY, "Corrected pairs: added to y"));
    command.add_option("--recovery-slope", recovery.Slope, "Corrected pairs: added to the slope")
        ->capture_default_str();
}

constexpr ResultHelp hist2dHelp = {
    .About =
        R"(Counts pairs of the last event of --chan-x and the last event of --chan-y by their times x and y
since a common reference: the sync in T3, the last event of --start-chan in T2. In T3 the event
that follows a pair counts it, once; in T2 each event that follows counts it, until the next
reference. Pairs outside the bins don't count.

With --tot, y is the time over threshold: the time from the event of x to the event of y.
--slope adds so many ps to x for each ps of y, which straightens a time walk.

A detector that has just fired answers at another time. So a pair is corrected if its reference
comes sooner than --recovery-min or later than --recovery-max after that of the pair before.)",
    .Csv = "a line per bin: x_ps and y_ps (its start),\ncounts; row by row, from the lowest y on",
    .Schema = hist2dSchema,
    .Keys = R"(  startChan  T2: channel of the reference; T3: null
  x, y       {channel, offsetPs, binWidthPs, bins}
  timeOverThreshold
  slope
  recovery   {minPs, maxPs, offsetXPs, offsetYPs, slope}
  total      number of pairs
  counts     [y.bins][x.bins])",
    .Examples = R"(  tessel hist2d pairs.tgx --bin-width-x 250ps --bin-width-y 250ps --plot map.png
  tessel hist2d edges.tgx --tot --slope -0.12 --bins-x 500 --bins-y 200 --json)"};

} // namespace

Command addHist2d(CLI::App &program)
{
    const auto options = std::make_shared<Hist2dOptions>();
    CLI::App *command = program.add_subcommand("hist2d", "Count pairs of events by the times of both");
    addMeasurementOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    asChannel(command->add_option("--start-chan", options->StartChan, "T2: reference channel"))
        ->capture_default_str();
    addAxisOptions(*command, options->X, "x");
    addAxisOptions(*command, options->Y, "y");
    command->add_flag("--tot", options->TimeOverThreshold,
                      "y is the time from the event of x to that of y (time over threshold)");
    command->add_option("--slope", options->Slope, "ps added to x for each ps of y")->capture_default_str();
    addRecoveryOptions(*command, options->Recovery);
    command->footer(helpText(hist2dHelp));
    return {command, [options](const HostOptions &host) { return runHist2d(*options, host); },
            [options](boost::json::object sum, int code) {
                return writeHist2dSum(*options, std::move(sum), code);
            }};
}

} // namespace Tessel::Cli
