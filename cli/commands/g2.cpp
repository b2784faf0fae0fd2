// `tessel g2`: the correlation of two channels in linear bins, in both directions.
#include "commands/commands.h"
#include "commands/doubts.h"
#include "commands/pair_counts.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>

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
    uint64_t SelfPairs = 0;
    std::array<uint64_t, 2> ChannelSpansPs = {}; // from the first to the last event of each
    CountTerms Terms;
    std::vector<double> Values, Sigmas;
    PairCounts Counts;
    std::vector<std::string> Notes;
};

// Before anything is counted.
void shape(G2 &g2, uint64_t binWidthPs, uint64_t numBins)
{
    g2.BinWidthPs = binWidthPs;
    g2.NumBins = numBins;
    const auto width = static_cast<double>(binWidthPs);
    for (std::vector<double> *lags : {&g2.FromPs, &g2.LagsPs, &g2.ToPs}) lags->clear();
    for (uint64_t i = 0; i < 2 * numBins; ++i) {
        g2.FromPs.push_back((static_cast<double>(i) - static_cast<double>(numBins)) * width);
        g2.LagsPs.push_back(g2.FromPs.back() + 0.5 * width);
        g2.ToPs.push_back(g2.FromPs.back() + width);
    }
    g2.Pairs.assign(2 * numBins, 0);
    g2.Terms = {};
    g2.SelfPairs = 0;
    g2.Notes.clear();
}

void prepare(G2 &g2, const G2Options &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t window = optionWholePs("--window", options.Window, 1);
    // The library would bring another width into this range without a word.
    const double narrowest = recording.MeasMode == 3 ? recording.ResolutionPs : recording.BaseResolutionPs;
    const uint64_t width = optionWholePs("--bin-width", options.BinWidth, 1);
    if (static_cast<double>(width) < narrowest || width > widestBinPs)
        throw Failure(Exit::Usage, fmt::format("--bin-width: from the recording's resolution, {}, to 1 ms",
                                               timeText(narrowest)));
    if (window < width || window / width > mostG2Bins)
        throw Failure(Exit::Usage, fmt::format("--window: from 1 to {} times --bin-width", mostG2Bins));
    shape(g2, width, window / width);
    doubtBinWidth(g2.Notes, "--bin-width", static_cast<double>(width), recording);
    doubtWindow(g2.Notes, "--window", window, g2.NumBins * width);
    setG2Params(nullptr, static_cast<uint64_t>(options.Channels.First),
                static_cast<uint64_t>(options.Channels.Second), static_cast<double>(window),
                static_cast<double>(g2.BinWidthPs), options.RawCounts ? 0 : 1);
    const double none = std::numeric_limits<double>::quiet_NaN();
    g2.Values.assign(2 * g2.NumBins, options.RawCounts ? 0 : none);
    g2.Sigmas.assign(2 * g2.NumBins, none);
}

// Each half by the time in ps in which its pairs were counted; the first half has the events of channel 1
// later.
void normalise(G2 &g2, const G2Options &options)
{
    const CountTerms &terms = g2.Terms;
    const double events = static_cast<double>(terms.Events[0]) * static_cast<double>(terms.Events[1]) *
                          static_cast<double>(g2.BinWidthPs);
    for (size_t bin = 0; bin < g2.Pairs.size(); ++bin) {
        const size_t later = bin < g2.NumBins ? 1 : 0;
        const uint64_t span = options.hasEachSpan() ? g2.ChannelSpansPs[later] : terms.spanPs();
        const Ratio ratio =
            pairRatio(g2.Pairs[bin], options.RawCounts ? 1 : events / static_cast<double>(span));
        g2.Values[bin] = ratio.Value;
        g2.Sigmas[bin] = ratio.Sigma;
    }
}

// Of one channel both halves are the same.
void take(G2 &g2, const G2Options &options)
{
    PairCounts &counts = g2.Counts;
    if (!takePairCounts(counts)) return;
    const bool isAuto = counts.Told.chan1 == counts.Told.chan2;
    g2.SelfPairs = counts.Told.selfPairs;
    g2.Terms = termsOf(counts);
    for (size_t half = 0; half < 2; ++half) {
        g2.ChannelSpansPs[half] = counts.Told.last[half] - counts.Told.first[half];
        for (uint64_t k = 0; k < g2.NumBins; ++k) {
            const uint64_t own = k == 0 ? g2.SelfPairs : 0;
            g2.Pairs[half == 0 ? g2.NumBins + k : g2.NumBins - 1 - k] =
                counts.Pairs[isAuto ? 0 : half][k] - own;
        }
    }
    normalise(g2, options);
}

void load(G2 &g2, const G2Options &options, const boost::json::object &result)
{
    std::vector<uint64_t> pairs = numbersIn(result.at("pairs"));
    if (pairs.size() != result.at("bins").to_number<uint64_t>() || pairs.size() % 2 != 0)
        throw Failure(Exit::Failed, "the result has other bins than pairs");
    shape(g2, result.at("binWidthPs").to_number<uint64_t>(), pairs.size() / 2);
    g2.Pairs = std::move(pairs);
    g2.Values.resize(2 * g2.NumBins);
    g2.Sigmas.resize(2 * g2.NumBins);
    g2.SelfPairs = result.at("selfPairs").to_number<uint64_t>();
    const std::vector<uint64_t> spans = numbersIn(result.at("channelSpansPs"));
    g2.ChannelSpansPs = {spans.at(0), spans.at(1)};
    g2.Terms = termsIn(result);
    normalise(g2, options);
}

std::string asCsv(const G2Options &options, const G2 &g2, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, g2Schema);
    notes.push_back(fmt::format("channels {} and {}; lag in ps (centre of the bin), at lags above 0 channel {} "
                                "comes later; 2 x {} bins of {} ps",
                                options.Channels.First, options.Channels.Second, options.Channels.First,
                                g2.NumBins, g2.BinWidthPs));
    notes.push_back(options.RawCounts ? "pairs per bin" : "normalised: uncorrelated light is at 1");
    notes.push_back(countsNote(g2.Terms));
    if (options.hasEachSpan()) notes.push_back("each half by the time of its later channel, not by T");
    if (g2.SelfPairs > 0)
        notes.push_back(fmt::format("without {} of an event with itself", counted(g2.SelfPairs, "pair")));
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
    addCounts(result, g2.Terms);
    result["channelSpansPs"] = {g2.ChannelSpansPs[0], g2.ChannelSpansPs[1]};
    result["span"] = options.Span;
    result["selfPairs"] = g2.SelfPairs;
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

Measurement stepsOf(const G2Options &options, G2 &g2)
{
    return {.Prepare = [&](const Recording &recording) { prepare(g2, options, recording); },
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
            .Notes = [&](const Measured &) { return g2.Notes; },
            .Load = [&](const boost::json::object &result) { load(g2, options, result); },
            .FileKeys = [&](const Measured &) { return fileKeys(g2.Terms); },
            .SumNotes = [](const boost::json::array &files) { return notesOnRates(files, 1); }};
}

int runG2(const G2Options &options, const HostOptions &host)
{
    G2 g2;
    return measure(options.Measure, host, stepsOf(options, g2));
}

int writeG2Sum(const G2Options &options, boost::json::object sum, int code)
{
    G2 g2;
    return writeSum(options.Measure, stepsOf(options, g2), std::move(sum), code);
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
  selfPairs     pairs of an event with itself, which were left out
  channelSpansPs
                [2] time from the first to the last event of each channel
Of several recordings pairs, n1, n2 and T are the sums, and the values are computed of these; pairs of
events of two recordings aren't counted.)",
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
    return {
        command, [options](const HostOptions &host) { return runG2(*options, host); },
        [options](boost::json::object sum, int code) { return writeG2Sum(*options, std::move(sum), code); }};
}

} // namespace Tessel::Cli
