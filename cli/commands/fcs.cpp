// `tessel fcs`: auto- and cross-correlation of two channels in logarithmic bins.
#include "commands/commands.h"
#include "commands/pair_counts.h"
#include "commands/several.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
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
    CountTerms Terms;
    std::array<std::vector<uint64_t>, 2> Later, Earlier; // events that could be it, at each edge
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

// The time in which pairs of this lag could be counted, in all recordings.
double overlapPs(const CountTerms &terms, double lag)
{
    double overlap = 0;
    for (const uint64_t span : terms.SpansPs) overlap += std::max(static_cast<double>(span) - lag, 0.0);
    return overlap;
}

// Pairs of uncorrelated light in bin k, whose lags take `later` and `earlier` from the two channels.
double expectedPairs(const FcsOptions &options, const Fcs &fcs, size_t later, size_t earlier, size_t k)
{
    const double from = fcs.FromPs[k], to = fcs.ToPs[k];
    const double overlap = overlapPs(fcs.Terms, (from + to) / 2);
    if (overlap <= 0) return 0;
    if (options.Norm == "mean") {
        const auto span = static_cast<double>(fcs.Terms.spanPs());
        return static_cast<double>(fcs.Terms.Events[later]) * static_cast<double>(fcs.Terms.Events[earlier]) /
               (span * span) * overlap * (to - from);
    }
    auto middle = [k](const std::vector<uint64_t> &events) {
        return (static_cast<double>(events[k]) + static_cast<double>(events[k + 1])) / 2;
    };
    return middle(fcs.Later[later]) * middle(fcs.Earlier[earlier]) / overlap * (to - from);
}

// The rows of the library that a curve adds up: row / 2 is the later channel, row % 2 the earlier one.
std::vector<size_t> rowsOf(const FcsOptions &options, size_t curve)
{
    if (curve != 1) return {curve == 0 ? size_t(0) : size_t(3)};
    if (options.Later == "both") return {1, 2};
    return {options.Later == "chan1" ? size_t(1) : size_t(2)};
}

void normalise(Fcs &fcs, const FcsOptions &options)
{
    for (size_t i = 0; i < std::size(fcs.Curves); ++i) {
        FcsCurve &curve = fcs.Curves[i];
        const std::vector<size_t> rows = rowsOf(options, i);
        for (size_t k = 0; k < curve.Pairs.size(); ++k) {
            double expected = 0;
            for (const size_t row : rows) expected += expectedPairs(options, fcs, row / 2, row % 2, k);
            const Ratio ratio = pairRatio(curve.Pairs[k], expected);
            curve.Values[k] = ratio.Value - 1;
            curve.Sigmas[k] = ratio.Sigma;
        }
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
    fcs.Terms = termsOf(counts);
    fcs.Later = counts.Later;
    fcs.Earlier = counts.Earlier;
    for (size_t i = 0; i < std::size(fcs.Curves); ++i) {
        std::vector<uint64_t> &pairs = fcs.Curves[i].Pairs;
        std::ranges::fill(pairs, 0);
        for (const size_t row : rowsOf(options, i))
            for (size_t k = 0; k < pairs.size(); ++k) pairs[k] += counts.Pairs[row][k];
    }
    normalise(fcs, options);
}

void checkSizes(const Fcs &fcs)
{
    bool areRight = fcs.LagsPs.size() == fcs.NumPoints && fcs.ToPs.size() == fcs.NumPoints;
    for (const FcsCurve &curve : fcs.Curves) areRight = areRight && curve.Pairs.size() == fcs.NumPoints;
    for (const auto *events : {&fcs.Later, &fcs.Earlier})
        for (const auto &channel : *events) areRight = areRight && channel.size() > fcs.NumPoints;
    if (!areRight) throw Failure(Exit::Failed, "the result has other lags than pairs");
}

void load(Fcs &fcs, const FcsOptions &options, const boost::json::object &result)
{
    fcs.NumPoints = result.at("points").to_number<size_t>();
    fcs.LagsPs.clear();
    fcs.FromPs.clear();
    for (const auto &lag : result.at("lagPs").as_array()) fcs.LagsPs.push_back(lag.to_number<double>());
    for (const auto &edge : result.at("edgesPs").as_array()) fcs.FromPs.push_back(edge.to_number<double>());
    fcs.ToPs = fcs.FromPs;
    if (!fcs.ToPs.empty()) {
        fcs.ToPs.erase(fcs.ToPs.begin());
        fcs.FromPs.pop_back();
    }
    fcs.Terms = termsIn(result);
    for (size_t channel = 0; channel < 2; ++channel) {
        fcs.Later[channel] = numbersIn(result.at("laterEvents").at(channel));
        fcs.Earlier[channel] = numbersIn(result.at("earlierEvents").at(channel));
    }
    for (FcsCurve &curve : fcs.Curves) {
        curve.Pairs = numbersIn(result.at("pairs").at(curve.Name));
        curve.Values.resize(curve.Pairs.size());
        curve.Sigmas.resize(curve.Pairs.size());
    }
    checkSizes(fcs);
    normalise(fcs, options);
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
