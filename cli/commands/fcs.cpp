// `tessel fcs`: auto- and cross-correlation of two channels in logarithmic bins.
#include "commands/commands.h"
#include "commands/pair_counts.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *fcsSchema = "tessel.fcs/1";

struct FcsOptions
{
    MeasureOptions Measure;
    ChannelPair Channels;
    std::string MinLag = "1us", MaxLag; // empty: a tenth of the measured time
    uint64_t Steps = 100;
    bool Fast = false;
    std::string Norm = "symmetric", Later = "both";
};

// A curve with its pairs; [points].
struct FcsCurve
{
    const char *Name;
    std::vector<double> Values{}, Sigmas{};
    std::vector<uint64_t> Pairs{};
};

struct Fcs
{
    size_t NumPoints = 0;
    uint64_t MaxLagPs = 0;
    std::vector<double> LagsPs, FromPs, ToPs;
    FcsCurve Curves[3] = {{.Name = "auto1"}, {.Name = "cross"}, {.Name = "auto2"}};
    PairCounts Counts;
};

constexpr double longestShare = 0.1; // of the measured time, for a lag

// A tenth of what will be measured, as far as that is known.
uint64_t defaultMaxLag(const Recording &recording)
{
    if (recording.RunForMs == longestRunMs) return 1'000'000'000'000;
    double ms = recording.RunForMs;
    if (!recording.isLive()) {
        const boost::json::value duration = fileReport(recording.Path, recording.Path).at("durationMs");
        if (duration.is_null())
            throw Failure(Exit::Usage, "--max-lag: needed, as the recording has no time scale");
        ms = duration.to_number<double>();
    }
    return static_cast<uint64_t>(ms * 1e9 * longestShare);
}

void prepare(Fcs &fcs, const FcsOptions &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t minLag = optionWholePs("--min-lag", options.MinLag, 1);
    if (static_cast<double>(minLag) < recording.BaseResolutionPs)
        throw Failure(Exit::Usage, fmt::format("--min-lag: at least the base resolution, {}",
                                               timeText(recording.BaseResolutionPs)));
    fcs.MaxLagPs =
        options.MaxLag.empty() ? defaultMaxLag(recording) : optionWholePs("--max-lag", options.MaxLag, 1);
    if (fcs.MaxLagPs <= minLag)
        throw Failure(Exit::Usage,
                      fmt::format("--max-lag: above --min-lag{}",
                                  options.MaxLag.empty() ? "; it is a tenth of the measured time, " +
                                                               timeText(double(fcs.MaxLagPs))
                                                         : ""));
    uint64_t numPoints = 0;
    const auto set = options.Fast ? setFFCSParams : setFCSParams;
    set(nullptr, static_cast<uint64_t>(options.Channels.First), static_cast<uint64_t>(options.Channels.Second),
        &numPoints, static_cast<double>(minLag), static_cast<double>(fcs.MaxLagPs), options.Steps);
    tessel_setCorrelationFromStart(nullptr, 1);
    fcs.NumPoints = numPoints;
    fcs.LagsPs.assign(fcs.NumPoints, 0);
    fcs.FromPs = fcs.ToPs = fcs.LagsPs;
    for (FcsCurve &curve : fcs.Curves) {
        curve.Pairs.assign(fcs.NumPoints, 0);
        curve.Values.assign(fcs.NumPoints, std::numeric_limits<double>::quiet_NaN());
        curve.Sigmas = curve.Values;
    }
}

// The library returns seconds, which are whole picoseconds.
void toPicoseconds(std::vector<double> &lags)
{
    for (double &lag : lags) lag = std::round(lag * 1e12);
}

// Pairs of uncorrelated light in bin k, whose lags take `later` and `earlier` from the two channels.
double expectedPairs(const FcsOptions &options, const PairCounts &counts, size_t later, size_t earlier,
                     size_t k)
{
    const double from = static_cast<double>(counts.Edges[k]), to = static_cast<double>(counts.Edges[k + 1]);
    const double span = counts.spanPs(), overlap = span - (from + to) / 2;
    if (overlap <= 0) return 0;
    if (options.Norm == "mean")
        return static_cast<double>(counts.Told.events[later]) *
               static_cast<double>(counts.Told.events[earlier]) / (span * span) * overlap * (to - from);
    auto middle = [k](const std::vector<uint64_t> &events) {
        return (static_cast<double>(events[k]) + static_cast<double>(events[k + 1])) / 2;
    };
    return middle(counts.Later[later]) * middle(counts.Earlier[earlier]) / overlap * (to - from);
}

// Adds up the pairs of the rows of the library that a curve takes, and normalises them.
void takeCurve(FcsCurve &curve, const FcsOptions &options, const PairCounts &counts,
               std::initializer_list<size_t> rows)
{
    for (size_t k = 0; k < curve.Pairs.size(); ++k) {
        double expected = 0;
        uint64_t pairs = 0;
        for (const size_t row : rows) {
            pairs += counts.Pairs[row][k];
            expected += expectedPairs(options, counts, row / 2, row % 2, k);
        }
        const Ratio ratio = pairRatio(pairs, expected);
        curve.Pairs[k] = pairs;
        curve.Values[k] = ratio.Value - 1;
        curve.Sigmas[k] = ratio.Sigma;
    }
}

void take(Fcs &fcs, const FcsOptions &options)
{
    const PairCounts &counts = fcs.Counts;
    if (!takePairCounts(fcs.Counts)) return;
    for (size_t k = 0; k < fcs.NumPoints; ++k) {
        fcs.FromPs[k] = static_cast<double>(counts.Edges[k]);
        fcs.ToPs[k] = static_cast<double>(counts.Edges[k + 1]);
    }
    takeCurve(fcs.Curves[0], options, counts, {0});
    if (options.Later == "both") takeCurve(fcs.Curves[1], options, counts, {1, 2});
    if (options.Later == "chan1") takeCurve(fcs.Curves[1], options, counts, {1});
    if (options.Later == "chan2") takeCurve(fcs.Curves[1], options, counts, {2});
    takeCurve(fcs.Curves[2], options, counts, {3});
}

bool isEmpty(const Fcs &fcs)
{
    return std::ranges::all_of(fcs.Curves, [](const FcsCurve &curve) {
        return std::ranges::all_of(curve.Pairs, [](uint64_t pairs) { return pairs == 0; });
    });
}

// A channel without events.
std::string faultOf(const Fcs &fcs)
{
    for (const FcsCurve &curve : fcs.Curves)
        if (std::ranges::none_of(curve.Values, [](double value) { return std::isfinite(value); }))
            return fmt::format("the curve {} has no value: a channel has no events, or none so far apart",
                               curve.Name);
    return "";
}

std::vector<std::string> notesOn(const Fcs &fcs)
{
    const double span = fcs.Counts.spanPs();
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
    notes.push_back(fmt::format("{}; normalisation {}; cross: later {}", countsNote(fcs.Counts), options.Norm,
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
    addCounts(result, fcs.Counts);
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

int runFcs(const FcsOptions &options, const HostOptions &host)
{
    Fcs fcs;
    return measure(options.Measure, host,
                   {.Prepare = [&](const Recording &recording) { prepare(fcs, options, recording); },
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
                    .Fault = [&] { return faultOf(fcs); }});
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
  normalisation symmetric, or mean
  later         both, chan1, chan2)",
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
    return {command, [options](const HostOptions &host) { return runFcs(*options, host); }};
}

} // namespace Tessel::Cli
