// `tessel fcs`: auto- and cross-correlation of two channels in logarithmic bins.
#include "commands/commands.h"
#include "commands/fcs_curves.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *fcsSchema = "tessel.fcs/1";

std::vector<std::string> notesOn(const Fcs &fcs)
{
    const auto span = static_cast<double>(fcs.Terms.spanPs());
    if (static_cast<double>(fcs.MaxLagPs) <= longestShare * span * 1.0001) return {};
    return {fmt::format("lags above a tenth of the measured time, {}, rest on few independent events",
                        timeText(span * longestShare))};
}

std::string asCsv(const FcsOptions &options, const Fcs &fcs, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, fcsSchema);
    notes.push_back(
        fmt::format("lag in ps (centre of the bin), {} lags; G of channel {} with itself (auto1), of "
                    "{} and {} (cross), of {} with itself (auto2); uncorrelated light is at 0",
                    fcs.NumPoints, options.Channels.First, options.Channels.First, options.Channels.Second,
                    options.Channels.Second));
    notes.push_back(fmt::format("{}; normalisation {}; cross: later {}", countsNote(fcs.Terms), options.Norm,
                                options.Later));
    notes.push_back(lastNote(measured));
    std::vector<Column> columns = {{"lag_ps", fcs.LagsPs}};
    for (const FcsCurve &curve : fcs.Curves) columns.push_back({curve.Name, curve.Values});
    columns.push_back({"from_ps", fcs.FromPs});
    columns.push_back({"to_ps", fcs.ToPs});
    for (const FcsCurve &curve : fcs.Curves) {
        columns.push_back({fmt::format("{}_pairs", curve.Name), curve.Pairs});
        columns.push_back({fmt::format("{}_sigma", curve.Name), curve.Sigmas});
    }
    return csvText(notes, columns);
}

boost::json::object asJson(const FcsOptions &options, const Fcs &fcs, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, fcsSchema);
    result["chan1"] = options.Channels.First;
    result["chan2"] = options.Channels.Second;
    result["fast"] = options.Fast;
    result["points"] = fcs.NumPoints;
    result["lagPs"] = jsonArray({"", fcs.LagsPs});
    boost::json::array edges = jsonArray({"", fcs.FromPs});
    if (!fcs.ToPs.empty()) edges.push_back(jsonNumber(fcs.ToPs.back()));
    result["edgesPs"] = std::move(edges);
    boost::json::object pairs, sigma;
    for (const FcsCurve &curve : fcs.Curves) {
        result[curve.Name] = jsonArray({"", curve.Values});
        pairs[curve.Name] = jsonArray({"", curve.Pairs});
        sigma[curve.Name] = jsonArray({"", curve.Sigmas});
    }
    result["pairs"] = std::move(pairs);
    result["sigma"] = std::move(sigma);
    addCounts(result, fcs.Terms);
    for (const auto &[key, events] : {std::pair{"laterEvents", &fcs.Later}, {"earlierEvents", &fcs.Earlier}})
        result[key] = {jsonArray({"", (*events)[0]}), jsonArray({"", (*events)[1]})};
    result["normalisation"] = options.Norm;
    result["later"] = options.Later;
    return result;
}

Plot asPlot(const FcsOptions &options, const Fcs &fcs, const Measured &measured)
{
    const std::string first = rowName(measured.From, options.Channels.First),
                      second = rowName(measured.From, options.Channels.Second);
    const std::string names[] = {first, fmt::format("{} and {}", first, second), second};
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = "Lag τ (s)";
    plot.YLabel = "G(τ)";
    plot.Level = 0;
    plot.LogX = true;
    plot.Lines = true;
    if (fcs.NumPoints > 0) {
        plot.XMin = fcs.LagsPs.front() * 1e-12;
        plot.XMax = fcs.LagsPs.back() * 1e-12;
    }
    for (size_t i = 0; i < (options.Channels.First == options.Channels.Second ? 1u : 3u); ++i) {
        plot.Curves.push_back(scaledCurve(names[i], fcs.LagsPs, 1e-12, fcs.Curves[i].Values));
        plot.Curves.back().Sigma = fcs.Curves[i].Sigmas;
    }
    return plot;
}

Measurement stepsOf(const FcsOptions &options, Fcs &fcs)
{
    return {.Prepare = [&](const Recording &recording) { prepare(fcs, options, recording); },
            .Start =
                [&](const RunStart &run) {
                    // The lags are there before the run starts.
                    getCorrelation(nullptr, run.AcqTimeMs, 0, run.Save, nullptr, fcs.LagsPs.data(),
                                   run.Finished);
                    toPicoseconds(fcs.LagsPs);
                },
            .Take = [&](bool) { take(fcs, options); },
            .IsEmpty = [&] { return isEmpty(fcs); },
            .Needs = "events on --chan1 and --chan2",
            .Csv = [&](const Measured &measured) { return asCsv(options, fcs, measured); },
            .Json = [&](const Measured &measured) { return asJson(options, fcs, measured); },
            .Plot = [&](const Measured &measured) { return asPlot(options, fcs, measured); },
            .Notes = [&](const Measured &) { return notesOn(fcs); },
            .Fault = [&] { return faultOf(fcs); },
            .Load = [&](const boost::json::object &result) { load(fcs, options, result); },
            .FileKeys = [&](const Measured &) { return fileKeys(fcs.Terms); },
            .SumNotes = [](const boost::json::array &files) { return notesOnRates(files, 0); }};
}

int runFcs(const FcsOptions &options, const HostOptions &host)
{
    Fcs fcs;
    return measure(options.Measure, host, stepsOf(options, fcs));
}

int writeFcsSum(const FcsOptions &options, boost::json::object sum, int code)
{
    Fcs fcs;
    return writeSum(options.Measure, stepsOf(options, fcs), std::move(sum), code);
}

constexpr ResultHelp fcsHelp = {
    .About =
        R"(Correlates in bins of equal logarithmic width, as in fluorescence correlation spectroscopy:
  G(lag) = pairs / expected - 1
of --chan1 with itself (auto1), of both with each other (cross), and of --chan2 with itself (auto2).
Uncorrelated light is at 0; N molecules in the focus give 1 / N at short lags. All pairs count, from
the first event on. Expected of uncorrelated light are, in the time T from the first event to the last,
  --norm symmetric  n1(lag) x n2(lag) x bin width / (T - lag), with n1(lag) and n2(lag) the events that
                    could be the later and the earlier one of a pair at the lag
  --norm mean       n1 x n2 x bin width x (T - lag) / T^2, with all events
cross is of both directions together, or of the pairs in which the event of one channel is --later.
sigma is the root of the pairs, of no pair that of one, in units of G. A curve without any value is
an exit code of 4.)",
    .Csv = "a line per lag: lag_ps (centre of the bin),\nauto1, cross, auto2, from_ps, to_ps, then pairs and "
           "sigma of each curve",
    .Schema = fcsSchema,
    .Keys = R"(  chan1, chan2  the channels
  fast          true: with --fast
  points        number of lags, about --steps
  lagPs         [points] centre of each bin
  auto1, cross, auto2
                [points] G; null (CSV: nan) if there is nothing to count
  edgesPs       [points + 1] ends of the bins
  pairs, sigma  {auto1, cross, auto2}: [points] each
  n1, n2        events of each channel
  measuredPs    T
  laterEvents, earlierEvents
                [2][points + 1] events of each channel that could be the later and the earlier one of a
                pair at each edge
  normalisation symmetric, or mean
  later         both, chan1, chan2
Of several recordings all counts are the sums, T - lag too, and G is computed of these; pairs of events of
two recordings aren't counted.)",
    .Examples = R"(  tessel fcs cells.tgx --min-lag 1us --max-lag 100ms --plot fcs.png
  tessel fcs cells.tgx --chan1 1 --chan2 1 --steps 60 --json | jq '.auto1[0]')"};

} // namespace

Command addFcs(CLI::App &program)
{
    const auto options = std::make_shared<FcsOptions>();
    CLI::App *command = program.add_subcommand("fcs", "Correlate two channels in logarithmic bins");
    addMeasurementOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    addChannelPair(*command, options->Channels);
    asTime(command->add_option("--min-lag", options->MinLag, "Shortest lag, at least the base resolution"));
    command->add_option("--max-lag", options->MaxLag, "Longest lag (default a tenth of the measured time) [ps]")
        ->type_name("TIME");
    asOneOf(command->add_option("--norm", options->Norm, "What a curve is normalised by"),
            {"symmetric", "mean"})
        ->capture_default_str();
    asOneOf(command->add_option("--later", options->Later, "cross: whose event is the later one"),
            {"both", "chan1", "chan2"})
        ->capture_default_str();
    asNumber(command->add_option("--steps", options->Steps, "Number of bins"), 1, 1'000'000)
        ->capture_default_str();
    command->add_flag("--fast", options->Fast,
                      "Count in the faster way (FFCS): a bin holds its lower end, not its upper end");
    command->footer(helpText(fcsHelp));
    return {
        command, [options](const HostOptions &host) { return runFcs(*options, host); },
        [options](boost::json::object sum, int code) { return writeFcsSum(*options, std::move(sum), code); }};
}

} // namespace Tessel::Cli
