// `tessel fcs`: auto- and cross-correlation of two channels in logarithmic bins.
#include "commands/commands.h"
#include "commands/measure.h"
#include "program/exit_codes.h"
#include "program/growing.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr const char *fcsSchema = "tessel.fcs/1";

struct FcsOptions
{
    MeasureOptions Measure;
    ChannelPair Channels;
    std::string MinLag = "1us", MaxLag = "1s";
    uint64_t Steps = 100;
    bool Fast = false;
};

// The curves follow one another in Values, each with one element more than there are lags.
struct Fcs
{
    size_t NumPoints = 0;
    std::vector<double> LagsPs, Values;

    std::span<const double> curve(size_t index) const
    {
        return std::span(Values).subspan(index * (NumPoints + 1), NumPoints);
    }
};

constexpr const char *columnNames[] = {"auto1", "cross", "auto2"};

Fcs prepared(const FcsOptions &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t minLag = optionWholePs("--min-lag", options.MinLag, 1),
                   maxLag = optionWholePs("--max-lag", options.MaxLag, 1);
    if (static_cast<double>(minLag) < recording.BaseResolutionPs)
        throw Failure(Exit::Usage, fmt::format("--min-lag: at least the base resolution, {}",
                                               timeText(recording.BaseResolutionPs)));
    if (maxLag <= minLag) throw Failure(Exit::Usage, "--max-lag: above --min-lag");
    uint64_t numPoints = 0;
    const auto set = options.Fast ? setFFCSParams : setFCSParams;
    set(nullptr, static_cast<uint64_t>(options.Channels.First), static_cast<uint64_t>(options.Channels.Second),
        &numPoints, static_cast<double>(minLag), static_cast<double>(maxLag), options.Steps);
    Fcs fcs;
    fcs.NumPoints = numPoints;
    fcs.LagsPs.assign(fcs.NumPoints, 0);
    // The library leaves them alone if there is nothing to count.
    fcs.Values.assign(3 * (fcs.NumPoints + 1), std::numeric_limits<double>::quiet_NaN());
    return fcs;
}

// The library returns seconds, which are whole picoseconds.
void toPicoseconds(std::vector<double> &lags)
{
    for (double &lag : lags) lag = std::round(lag * 1e12);
}

std::string asCsv(const FcsOptions &options, const Fcs &fcs, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, fcsSchema);
    notes.push_back(
        fmt::format("lag in ps (centre of the bin), {} lags; G of channel {} with itself (auto1), of "
                    "{} and {} (cross), of {} with itself (auto2); uncorrelated light is at 0",
                    fcs.NumPoints, options.Channels.First, options.Channels.First, options.Channels.Second,
                    options.Channels.Second));
    notes.push_back(lastNote(measured));
    std::vector<Column> columns = {{"lag_ps", fcs.LagsPs}};
    for (size_t i = 0; i < 3; ++i) columns.push_back({columnNames[i], fcs.curve(i)});
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
    for (size_t i = 0; i < 3; ++i) result[columnNames[i]] = jsonArray({"", fcs.curve(i)});
    return result;
}

Plot asPlot(const FcsOptions &options, const Fcs &fcs, const Measured &measured)
{
    const std::string first = rowName(measured.From, options.Channels.First),
                      second = rowName(measured.From, options.Channels.Second);
    const std::string names[] = {first, fmt::format("{} and {}", first, second), second};
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = "Lag (s)";
    plot.YLabel = "G";
    plot.LogX = true;
    plot.Lines = true;
    if (fcs.NumPoints > 0) {
        plot.XMin = fcs.LagsPs.front() * 1e-12;
        plot.XMax = fcs.LagsPs.back() * 1e-12;
    }
    for (size_t i = 0; i < (options.Channels.First == options.Channels.Second ? 1u : 3u); ++i)
        plot.Curves.push_back(scaledCurve(names[i], fcs.LagsPs, 1e-12, fcs.curve(i)));
    return plot;
}

int runFcs(const FcsOptions &options, const HostOptions &host)
{
    Fcs fcs;
    Growing<double> values;
    return measure(options.Measure, host,
                   {.Prepare = [&](const Recording &recording) { fcs = prepared(options, recording); },
                    .Start =
                        [&](const RunStart &run) {
                            // The lags are there before the run starts.
                            getCorrelation(nullptr, run.AcqTimeMs, 0, run.Save, values.begin(fcs.Values),
                                           fcs.LagsPs.data(), run.Finished);
                            toPicoseconds(fcs.LagsPs);
                        },
                    .Take = [&](bool hasEnded) { values.take(fcs.Values, hasEnded); },
                    .IsEmpty = [&] { return isAllZero(fcs.Values); },
                    .Needs = "a recording longer than --max-lag with events on --chan1 and --chan2",
                    .Csv = [&](const Measured &measured) { return asCsv(options, fcs, measured); },
                    .Json = [&](const Measured &measured) { return asJson(options, fcs, measured); },
                    .Plot = [&](const Measured &measured) { return asPlot(options, fcs, measured); }});
}

constexpr ResultHelp fcsHelp = {
    .About =
        R"(Correlates in bins of equal logarithmic width, as in fluorescence correlation spectroscopy:
  G(lag) = pairs x T / (n1 x n2 x bin width) - 1
of --chan1 with itself (auto1), of both with each other (cross, the mean of both directions), and
of --chan2 with itself (auto2). n1 and n2 are the events of each channel, T is the measured time.
Uncorrelated light is at 0; N molecules in the focus give 1 / N at short lags.

Counting begins when the longest lag has passed: a recording must be longer than that.)",
    .Csv = "a line per lag: lag_ps (centre of the bin),\nauto1, cross, auto2",
    .Schema = fcsSchema,
    .Keys = R"(  chan1, chan2  the channels
  fast          true: with --fast
  points        number of lags, about --steps
  lagPs         [points] centre of each bin
  auto1, cross, auto2
                [points] G; null (CSV: nan) if there is nothing to count)",
    .Examples = R"(  tessel fcs cells.tgx --min-lag 1us --max-lag 100ms --plot fcs.png
  tessel fcs cells.tgx --chan1 1 --chan2 1 --steps 60 --json | jq '.auto1[0]')"};

} // namespace

Command addFcs(CLI::App &program)
{
    const auto options = std::make_shared<FcsOptions>();
    CLI::App *command = program.add_subcommand("fcs", "Correlate two channels in logarithmic bins");
    addMeasureOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    addChannelPair(*command, options->Channels);
    asTime(command->add_option("--min-lag", options->MinLag, "Shortest lag, at least the base resolution"));
    asTime(command->add_option("--max-lag", options->MaxLag, "Longest lag"));
    asNumber(command->add_option("--steps", options->Steps, "Number of bins"), 1, 1'000'000)
        ->capture_default_str();
    command->add_flag("--fast", options->Fast,
                      "Count in the faster way (FFCS): a bin holds its lower end, not its upper end");
    command->footer(helpText(fcsHelp));
    return {command, [options](const HostOptions &host) { return runFcs(*options, host); }};
}

} // namespace Tessel::Cli
