// `tessel g2`: the correlation of two channels in linear bins, in both directions.
#include "commands/commands.h"
#include "commands/measure.h"
#include "program/exit_codes.h"
#include "program/growing.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

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
};

struct G2
{
    uint64_t BinWidthPs = 0, NumBins = 0; // a direction
    std::vector<double> LagsPs, Values;   // 2 x NumBins
};

G2 prepared(const G2Options &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t window = optionWholePs("--window", options.Window, 1);
    // The library would bring another width into this range without a word.
    const double narrowest = recording.MeasMode == 3 ? recording.ResolutionPs : recording.BaseResolutionPs;
    G2 g2;
    g2.BinWidthPs = optionWholePs("--bin-width", options.BinWidth, 1);
    if (static_cast<double>(g2.BinWidthPs) < narrowest || g2.BinWidthPs > widestBinPs)
        throw Failure(Exit::Usage, fmt::format("--bin-width: from the recording's resolution, {}, to 1 ms",
                                               timeText(narrowest)));
    g2.NumBins = window / g2.BinWidthPs;
    if (g2.NumBins == 0 || g2.NumBins > mostG2Bins)
        throw Failure(Exit::Usage, fmt::format("--window: from 1 to {} times --bin-width", mostG2Bins));
    setG2Params(nullptr, static_cast<uint64_t>(options.Channels.First),
                static_cast<uint64_t>(options.Channels.Second), static_cast<double>(window),
                static_cast<double>(g2.BinWidthPs), options.RawCounts ? 0 : 1);
    for (uint64_t i = 0; i < 2 * g2.NumBins; ++i)
        g2.LagsPs.push_back((static_cast<double>(i) - static_cast<double>(g2.NumBins) + 0.5) *
                            static_cast<double>(g2.BinWidthPs));
    // The library leaves them alone if there is nothing to count, which gives 0 pairs and no g2.
    g2.Values.assign(2 * g2.NumBins, options.RawCounts ? 0 : std::numeric_limits<double>::quiet_NaN());
    return g2;
}

const char *valueName(const G2Options &options)
{
    return options.RawCounts ? "pairs" : "g2";
}

std::string asCsv(const G2Options &options, const G2 &g2, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, g2Schema);
    notes.push_back(fmt::format("channels {} and {}; lag in ps (centre of the bin), at lags above 0 channel {} "
                                "comes later; 2 x {} bins of {} ps",
                                options.Channels.First, options.Channels.Second, options.Channels.First,
                                g2.NumBins, g2.BinWidthPs));
    notes.push_back(options.RawCounts ? "pairs per bin" : "normalised: uncorrelated light is at 1");
    notes.push_back(lastNote(measured));
    const Column columns[] = {{"lag_ps", g2.LagsPs}, {valueName(options), g2.Values}};
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
    return result;
}

Plot asPlot(const G2Options &options, const G2 &g2, const Measured &measured)
{
    const double end = static_cast<double>(g2.NumBins * g2.BinWidthPs);
    const TimeAxis axis = timeAxis(end);
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = fmt::format("Lag ({})", axis.Unit);
    plot.YLabel = options.RawCounts ? fmt::format("Pairs per {}", timeText(static_cast<double>(g2.BinWidthPs)))
                                    : std::string("g2");
    plot.XMin = -end * axis.Factor;
    plot.XMax = end * axis.Factor;
    plot.Lines = true;
    const std::string name = fmt::format("{} and {}", rowName(measured.From, options.Channels.First),
                                         rowName(measured.From, options.Channels.Second));
    plot.Curves.push_back(scaledCurve(name, g2.LagsPs, axis.Factor, g2.Values));
    return plot;
}

int runG2(const G2Options &options, const HostOptions &host)
{
    G2 g2;
    Growing<double> values;
    std::vector<double> axis; // in seconds, for the library; LagsPs are the same without rounding
    return measure(options.Measure, host,
                   {.Prepare =
                        [&](const Recording &recording) {
                            g2 = prepared(options, recording);
                            axis.resize(g2.Values.size());
                        },
                    .Start =
                        [&](const RunStart &run) {
                            getCorrelation(nullptr, run.AcqTimeMs, 0, run.Save, values.begin(g2.Values),
                                           axis.data(), run.Finished);
                        },
                    .Take = [&](bool hasEnded) { values.take(g2.Values, hasEnded); },
                    .IsEmpty = [&] { return isAllZero(g2.Values); },
                    .Needs = "events on --chan1 and --chan2 within --window of each other",
                    .Csv = [&](const Measured &measured) { return asCsv(options, g2, measured); },
                    .Json = [&](const Measured &measured) { return asJson(options, g2, measured); },
                    .Plot = [&](const Measured &measured) { return asPlot(options, g2, measured); }});
}

constexpr ResultHelp g2Help = {
    .About =
        R"(How often an event of one channel follows an event of the other at each lag, as in a Hanbury
Brown-Twiss experiment:
  g2(lag) = pairs x T / (n1 x n2 x bin width)
n1 and n2 are the events of each channel, T is the measured time. Uncorrelated light is at 1.
With --raw-counts the values are pairs. At a lag above 0 the event of --chan1 comes later.)",
    .Csv = "a line per bin from the most negative lag on:\nlag_ps (centre of the bin), g2 or pairs",
    .Schema = g2Schema,
    .Keys = R"(  chan1, chan2  the channels
  binWidthPs    width of a bin
  bins          number of bins: 2 x (window / bin width)
  normalised    false: the values are pairs
  lagPs         [bins] centre of each bin
  values        [bins]; null (CSV: nan) if a channel has no events)",
    .Examples = R"(  tessel g2 emitter.tgx --window 100ns --bin-width 500ps --plot dip.png
  tessel g2 lamp.tgx --chan1 1 --chan2 3 --raw-counts -o pairs.csv)"};

} // namespace

Command addG2(CLI::App &program)
{
    const auto options = std::make_shared<G2Options>();
    CLI::App *command = program.add_subcommand("g2", "Correlate two channels in linear bins");
    addMeasureOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    addChannelPair(*command, options->Channels);
    asTime(command->add_option("--window", options->Window, "Longest lag"));
    asTime(command->add_option("--bin-width", options->BinWidth,
                               "Width of a bin, from the recording's resolution to 1ms"));
    command->add_flag("--raw-counts", options->RawCounts, "Count pairs, without normalisation");
    command->footer(helpText(g2Help));
    return {command, [options](const HostOptions &host) { return runG2(*options, host); }};
}

} // namespace Tessel::Cli
