// `tessel fcs`: auto- and cross-correlation of two channels in logarithmic bins.
#include "commands/commands.h"
#include "commands/measure.h"
#include "program/exit_codes.h"
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

// The curves stand in Values one behind the other, each with one element more than there are lags.
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

// From the seconds that the library gives, which are whole picoseconds.
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
    for (size_t i = 0; i < (options.Channels.First == options.Channels.Second ? 1u : 3u); ++i) {
        const auto values = fcs.curve(i);
        Curve curve{.Name = names[i], .X = {}, .Y = {values.begin(), values.end()}};
        for (const double lag : fcs.LagsPs) curve.X.push_back(lag * 1e-12);
        plot.Curves.push_back(std::move(curve));
    }
    return plot;
}

int runFcs(const FcsOptions &options, const HostOptions &host)
{
    Fcs fcs;
    return measure(options.Measure, host,
                   {.Prepare = [&](const Recording &recording) { fcs = prepared(options, recording); },
                    .Start =
                        [&](uint8_t *finished) {
                            // The lags are there before the run starts.
                            getCorrelation(nullptr, 0, 0, 0, fcs.Values.data(), fcs.LagsPs.data(), finished);
                            toPicoseconds(fcs.LagsPs);
                        },
                    .IsEmpty = [&] { return isAllZero(fcs.Values); },
                    .Needs = "a recording longer than --max-lag with events on --chan1 and --chan2",
                    .Csv = [&](const Measured &measured) { return asCsv(options, fcs, measured); },
                    .Json = [&](const Measured &measured) { return asJson(options, fcs, measured); },
                    .Plot = [&](const Measured &measured) { return asPlot(options, fcs, measured); }});
}

constexpr const char *fcsFooter =
    R"(G(lag) = pairs x T / (n1 x n2 x width) - 1 in bins of one logarithmic width, as in fluorescence
correlation spectroscopy: of --chan1 with itself, of both with each other (the mean of both
directions), and of --chan2 with itself. Uncorrelated light is at 0; N molecules in the focus give
1 / N at short lags. With --fast the bins hold their lower end instead of their upper end.

CSV: comment lines with '#', lag_ps,auto1,cross,auto2, one line per lag (centre of its bin).
JSON, schema tessel.fcs/1: file, device, mode, run {recordsRead, recordsInFile, complete,
stopReason}, chan1, chan2, fast, points, lagPs [points], auto1 [points], cross [points], auto2
[points]; a value is null (CSV: nan) where there is nothing to count. points is about --steps.

Counting begins once the longest lag has passed: a recording must be longer than that.

Examples:
  tessel fcs cells.tgx --min-lag 1us --max-lag 100ms --plot fcs.png
  tessel fcs cells.tgx --chan1 1 --chan2 1 --steps 60 --json | jq '.auto1[0]')";

} // namespace

Command addFcs(CLI::App &program)
{
    const auto options = std::make_shared<FcsOptions>();
    CLI::App *command =
        program.add_subcommand("fcs", "Correlate two channels of a recording in logarithmic bins");
    addMeasureOptions(*command, options->Measure);
    addChannelPair(*command, options->Channels);
    asTime(command->add_option("--min-lag", options->MinLag,
                               "Shortest lag, at least the base resolution, bare in ps"));
    asTime(command->add_option("--max-lag", options->MaxLag, "Longest lag, bare in ps"));
    asNumber(command->add_option("--steps", options->Steps, "Number of bins"), 1, 1'000'000)
        ->capture_default_str();
    command->add_flag("--fast", options->Fast, "The fast way of counting (FFCS)");
    command->footer(fcsFooter);
    return {command, [options](const HostOptions &host) { return runFcs(*options, host); }};
}

} // namespace Tessel::Cli
