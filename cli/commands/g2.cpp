// `tessel g2`: the correlation of two channels in linear bins, in both directions.
#include "commands/commands.h"
#include "commands/doubts.h"
#include "commands/pair_counts.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *g2Schema = "tessel.g2/1";
constexpr uint64_t mostG2Bins = 10'000'000; // a direction
constexpr uint64_t widestBinPs = 1'000'000'000;

struct G2Options
{
    MeasureOptions Measure;
    ChannelPair Channels;
    std::string Window = "1us", BinWidth = "1ns";
    bool RawCounts = false;
    std::string Span = "common";

    bool hasEachSpan() const { return Span == "each"; }
};

struct G2
{
    uint64_t BinWidthPs = 0, NumBins = 0;     // a direction
    std::vector<double> LagsPs, FromPs, ToPs; // 2 x NumBins: centre and ends of each bin
    std::vector<uint64_t> Pairs;              // without those of an event with itself
    std::vector<double> Values, Sigmas;
    PairCounts Counts;
    std::vector<std::string> Notes;

    uint64_t selfPairs() const { return Counts.Told.selfPairs; }
};

void prepare(G2 &g2, const G2Options &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t window = optionWholePs("--window", options.Window, 1);
    // The library would bring another width into this range without a word.
    const double narrowest = recording.MeasMode == 3 ? recording.ResolutionPs : recording.BaseResolutionPs;
    g2.BinWidthPs = optionWholePs("--bin-width", options.BinWidth, 1);
    if (static_cast<double>(g2.BinWidthPs) < narrowest || g2.BinWidthPs > widestBinPs)
        throw Failure(Exit::Usage, fmt::format("--bin-width: from the recording's resolution, {}, to 1 ms",
                                               timeText(narrowest)));
    g2.NumBins = window / g2.BinWidthPs;
    if (g2.NumBins == 0 || g2.NumBins > mostG2Bins)
        throw Failure(Exit::Usage, fmt::format("--window: from 1 to {} times --bin-width", mostG2Bins));
    doubtBinWidth(g2.Notes, "--bin-width", static_cast<double>(g2.BinWidthPs), recording);
    doubtWindow(g2.Notes, "--window", window, g2.NumBins * g2.BinWidthPs);
    setG2Params(nullptr, static_cast<uint64_t>(options.Channels.First),
                static_cast<uint64_t>(options.Channels.Second), static_cast<double>(window),
                static_cast<double>(g2.BinWidthPs), options.RawCounts ? 0 : 1);
    const auto width = static_cast<double>(g2.BinWidthPs);
    for (uint64_t i = 0; i < 2 * g2.NumBins; ++i) {
        g2.FromPs.push_back((static_cast<double>(i) - static_cast<double>(g2.NumBins)) * width);
        g2.LagsPs.push_back(g2.FromPs.back() + 0.5 * width);
        g2.ToPs.push_back(g2.FromPs.back() + width);
    }
    const double none = std::numeric_limits<double>::quiet_NaN();
    g2.Pairs.assign(2 * g2.NumBins, 0);
    g2.Values.assign(2 * g2.NumBins, options.RawCounts ? 0 : none);
    g2.Sigmas.assign(2 * g2.NumBins, none);
}

// The time in ps in which the pairs of one half were counted; `later`: the channel of their later events.
double spanOf(const G2Options &options, const PairCounts &counts, size_t later)
{
    const auto &told = counts.Told;
    return options.hasEachSpan() ? static_cast<double>(told.last[later] - told.first[later]) : counts.spanPs();
}

void setBin(G2 &g2, const G2Options &options, size_t bin, uint64_t pairs, double expected)
{
    const Ratio ratio = pairRatio(pairs, options.RawCounts ? 1 : expected);
    g2.Pairs[bin] = pairs;
    g2.Values[bin] = ratio.Value;
    g2.Sigmas[bin] = ratio.Sigma;
}

// Of one channel both halves are the same.
void take(G2 &g2, const G2Options &options)
{
    PairCounts &counts = g2.Counts;
    if (!takePairCounts(counts)) return;
    const bool isAuto = counts.Told.chan1 == counts.Told.chan2;
    const double width = static_cast<double>(g2.BinWidthPs),
                 events = static_cast<double>(counts.Told.events[0]) *
                          static_cast<double>(counts.Told.events[1]) * width;
    for (size_t half = 0; half < 2; ++half) {
        const double expected = events / spanOf(options, counts, half);
        for (uint64_t k = 0; k < g2.NumBins; ++k) {
            const uint64_t own = k == 0 ? g2.selfPairs() : 0;
            const uint64_t pairs = counts.Pairs[isAuto ? 0 : half][k] - own;
            setBin(g2, options, half == 0 ? g2.NumBins + k : g2.NumBins - 1 - k, pairs, expected);
        }
    }
}

std::string asCsv(const G2Options &options, const G2 &g2, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, g2Schema);
    notes.push_back(fmt::format("channels {} and {}; lag in ps (centre of the bin), at lags above 0 channel {} "
                                "comes later; 2 x {} bins of {} ps",
                                options.Channels.First, options.Channels.Second, options.Channels.First,
                                g2.NumBins, g2.BinWidthPs));
    notes.push_back(options.RawCounts ? "pairs per bin" : "normalised: uncorrelated light is at 1");
    notes.push_back(countsNote(g2.Counts));
    if (options.hasEachSpan()) notes.push_back("each half by the time of its later channel, not by T");
    if (g2.selfPairs() > 0)
        notes.push_back(fmt::format("without {} of an event with itself", counted(g2.selfPairs(), "pair")));
    notes.push_back(lastNote(measured));
    std::vector<Column> columns = {{"lag_ps", g2.LagsPs}};
    if (!options.RawCounts) columns.push_back({"g2", g2.Values});
    columns.insert(columns.end(),
                   {{"pairs", g2.Pairs}, {"sigma", g2.Sigmas}, {"from_ps", g2.FromPs}, {"to_ps", g2.ToPs}});
    return csvText(notes, columns);
}

boost::json::object asJson(const G2Options &options, const G2 &g2, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, g2Schema);
    result["chan1"] = options.Channels.First;
    result["chan2"] = options.Channels.Second;
    result["binWidthPs"] = g2.BinWidthPs;
    result["bins"] = 2 * g2.NumBins;
    result["normalised"] = !options.RawCounts;
    result["lagPs"] = jsonArray({"", g2.LagsPs});
    result["values"] = jsonArray({"", g2.Values});
    result["sigma"] = jsonArray({"", g2.Sigmas});
    result["pairs"] = jsonArray({"", g2.Pairs});
    std::vector<double> edges = g2.FromPs;
    edges.push_back(g2.ToPs.back());
    result["edgesPs"] = jsonArray({"", edges});
    addCounts(result, g2.Counts);
    result["span"] = options.Span;
    result["selfPairs"] = g2.selfPairs();
    return result;
}

Plot asPlot(const G2Options &options, const G2 &g2, const Measured &measured)
{
    const double end = static_cast<double>(g2.NumBins * g2.BinWidthPs);
    const TimeAxis axis = timeAxis(end);
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = fmt::format("Lag τ ({})", axis.Unit);
    plot.YLabel = options.RawCounts ? fmt::format("Pairs per {}", timeText(static_cast<double>(g2.BinWidthPs)))
                                    : std::string("g⁽²⁾(τ)");
    plot.XMin = -end * axis.Factor;
    plot.XMax = end * axis.Factor;
    plot.Lines = true;
    const std::string name = fmt::format("{} and {}", rowName(measured.From, options.Channels.First),
                                         rowName(measured.From, options.Channels.Second));
    plot.Curves.push_back(scaledCurve(name, g2.LagsPs, axis.Factor, g2.Values));
    plot.Curves.back().Sigma = g2.Sigmas;
    if (!options.RawCounts) plot.Level = 1;
    return plot;
}

int runG2(const G2Options &options, const HostOptions &host)
{
    G2 g2;
    return measure(
        options.Measure, host,
        {.Prepare = [&](const Recording &recording) { prepare(g2, options, recording); },
         .Start =
             [](const RunStart &run) {
                 getCorrelation(nullptr, run.AcqTimeMs, 0, run.Save, nullptr, nullptr, run.Finished);
             },
         .Take = [&](bool) { take(g2, options); },
         .IsEmpty = [&] { return std::ranges::all_of(g2.Pairs, [](uint64_t pairs) { return pairs == 0; }); },
         .Needs = "events on --chan1 and --chan2 within --window of each other",
         .Csv = [&](const Measured &measured) { return asCsv(options, g2, measured); },
         .Json = [&](const Measured &measured) { return asJson(options, g2, measured); },
         .Plot = [&](const Measured &measured) { return asPlot(options, g2, measured); },
         .Notes = [&](const Measured &) { return g2.Notes; }});
}

constexpr ResultHelp g2Help = {
    .About =
        R"(How often an event of one channel follows an event of the other at each lag, as in a Hanbury
Brown-Twiss experiment:
  g2(lag) = pairs x T / (n1 x n2 x bin width)
n1 and n2 are the events of each channel, T is the time from the first event of the two channels to
the last. Uncorrelated light is at 1. At a lag above 0 the event of --chan1 comes later; a pair at
equal times is in both bins at lag 0. A channel with itself leaves out the pairs of an event with
itself (selfPairs). sigma is that of the pairs: the root of their number, of no pair that of one.
--span each takes for T, in each half, the time of the channel that comes later, as the library
does: then a channel that starts late makes a step at lag 0. --raw-counts: the values are pairs.)",
    .Csv = "a line per bin from the most negative lag on:\n"
           "lag_ps (centre of the bin), g2 (not with --raw-counts), pairs, sigma, from_ps, to_ps",
    .Schema = g2Schema,
    .Keys = R"(  chan1, chan2  the channels
  binWidthPs    width of a bin
  bins          number of bins: 2 x (window / bin width)
  normalised    false: the values are pairs
  lagPs         [bins] centre of each bin
  values        [bins]; null (CSV: nan) if a channel has no events
  sigma         [bins] standard deviation of the values
  pairs         [bins]
  edgesPs       [bins + 1]
  n1, n2        events of each channel
  measuredPs    T
  span          common, or each
  selfPairs     pairs of an event with itself, which were left out)",
    .Examples = R"(  tessel g2 emitter.tgx --window 100ns --bin-width 500ps --plot dip.png
  tessel g2 lamp.tgx --chan1 1 --chan2 3 --raw-counts -o pairs.csv)"};

} // namespace

Command addG2(CLI::App &program)
{
    const auto options = std::make_shared<G2Options>();
    CLI::App *command = program.add_subcommand("g2", "Correlate two channels in linear bins");
    addMeasurementOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    addChannelPair(*command, options->Channels);
    asTime(command->add_option("--window", options->Window, "Longest lag"));
    asTime(command->add_option("--bin-width", options->BinWidth,
                               "Width of a bin, from the recording's resolution to 1ms"));
    command->add_flag("--raw-counts", options->RawCounts, "Count pairs, without normalisation");
    asOneOf(command->add_option("--span", options->Span, "T for both halves, or of each half's later channel"),
            {"common", "each"})
        ->capture_default_str();
    command->footer(helpText(g2Help));
    return {command, [options](const HostOptions &host) { return runG2(*options, host); }};
}

} // namespace Tessel::Cli
