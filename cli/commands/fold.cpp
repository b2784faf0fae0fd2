// `tessel fold`: phases of the events of each channel in a period, with the Z2 statistic; and the search for
// one.
#include "commands/commands.h"
#include "commands/phase_sums.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/output.h"
#include "program/units.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace Tessel::Cli {

namespace {

constexpr const char *foldSchema = "tessel.fold/1";
constexpr size_t foldBlock = size_t(1) << 20; // events
constexpr double secondsPerPs = 1e-12;
constexpr uint64_t mostFrequencies = 10'000'000;

struct FoldOptions
{
    MeasureOptions Measure;
    std::string Period, Frequency, Search;
    uint64_t Bins = 20;
    int Chan = 1;
};

struct Fold
{
    double FrequencyHz = 0;
    uint64_t NumBins = 0;
    std::vector<uint32_t> Counts; // row after row
    std::vector<PhaseSums> Sums;  // by row

    std::span<const uint32_t> row(int64_t index) const
    {
        return std::span(Counts).subspan(static_cast<size_t>(index) * NumBins, NumBins);
    }
};

struct Search
{
    double FromHz = 0, StepHz = 0;
    std::vector<PhaseSums> Sums; // by frequency

    double frequency(size_t index) const { return FromHz + static_cast<double>(index) * StepHz; }
    size_t best() const
    {
        const auto less = [](const PhaseSums &one, const PhaseSums &other) { return one.z2() < other.z2(); };
        return static_cast<size_t>(std::max_element(Sums.begin(), Sums.end(), less) - Sums.begin());
    }
};

// The events of a replay, block by block, in seconds since the first one.
struct EventSeconds
{
    std::vector<uint64_t> Times = std::vector<uint64_t>(foldBlock), BlockTimes = Times;
    std::vector<uint8_t> Channels = std::vector<uint8_t>(foldBlock), BlockChannels = Channels;
    std::optional<double> FirstPs;
};

double timePs(const Recording &recording, uint64_t raw)
{
    if (recording.MeasMode == 2) return static_cast<double>(raw);
    const double period = recording.UsedPeriodPs > 0 ? recording.UsedPeriodPs : recording.SyncPeriodPs;
    return static_cast<double>(raw >> 15) * period + static_cast<double>(raw & 0x7FFF) * recording.ResolutionPs;
}

// Calls `count(row, seconds)` for each event of a row. False: there was none.
template <class Count>
bool countBlock(EventSeconds &events, const Recording &recording, Count count)
{
    uint64_t size = 0;
    ufGetBlock(nullptr, events.Times.data(), events.Channels.data(), &size);
    for (uint64_t i = 0; i < size; ++i) {
        const size_t row = events.Channels[i];
        if (row >= static_cast<size_t>(recording.NumRows)) continue; // markers, overflows
        const double ps = timePs(recording, events.Times[i]);
        if (!events.FirstPs) events.FirstPs = ps;
        count(row, (ps - *events.FirstPs) * secondsPerPs);
    }
    return size > 0;
}

void startEvents(EventSeconds &events, const RunStart &run)
{
    ufStartBlock(nullptr, static_cast<uint32_t>(run.AcqTimeMs), run.Save, events.BlockTimes.data(),
                 events.BlockChannels.data(), foldBlock, run.Finished);
}

double frequencyOf(const FoldOptions &options)
{
    if (!options.Frequency.empty())
        return optionValue("--frequency", [&] { return parseRateHz(options.Frequency, "Hz"); });
    const double ps = optionValue("--period", [&] { return parseTimePs(options.Period, "ps"); });
    return ps > 0 ? 1 / (ps * secondsPerPs) : 0;
}

Search searchOf(const FoldOptions &options)
{
    const auto given = optionValues("--search", [&] { return parseRatesHz(options.Search, "Hz"); });
    if (given.size() != 3 || given[0] <= 0 || given[1] < given[0] || given[2] <= 0)
        throw Failure(Exit::Usage, "--search: FROM,TO,STEP, rates above 0");
    const double steps = std::floor((given[1] - given[0]) / given[2] * (1 + 1e-9));
    if (steps >= static_cast<double>(mostFrequencies))
        throw Failure(Exit::Usage, fmt::format("--search: at most {} frequencies", mostFrequencies));
    return {given[0], given[2], std::vector<PhaseSums>(static_cast<size_t>(steps) + 1)};
}

void checkFoldOptions(const FoldOptions &options)
{
    const int given = !options.Period.empty() + !options.Frequency.empty() + !options.Search.empty();
    if (given != 1) throw Failure(Exit::Usage, "one of --period, --frequency and --search");
    if (!options.Search.empty() && !options.Measure.RecordFile.empty())
        throw Failure(Exit::Usage, "--search and --record: choose one");
}

void search(Search &found, const FoldOptions &options, const Recording &recording)
{
    if (recording.isLive()) throw Failure(Exit::Usage, "--search is for recordings, which it reads twice");
    checkChannel("--chan", options.Chan, recording);
    EventSeconds events;
    const auto start = [&](int32_t acqTimeMs, uint8_t *finished) {
        startEvents(events, {acqTimeMs, 0, finished});
    };
    const auto count = [&](size_t row, double seconds) {
        if (row != static_cast<size_t>(options.Chan)) return;
        for (size_t i = 0; i < found.Sums.size(); ++i)
            addPhase(found.Sums[i], turnsOf(seconds, found.frequency(i)));
    };
    const Outcome run = replay(recording, start, [&] { return countBlock(events, recording, count); });
    if (run.Signal != 0)
        throw Failure(static_cast<Exit>(exitCodeOfSignal(run.Signal)),
                      "stopped in the search; there is no result");
    const size_t best = found.best();
    note(fmt::format("largest Z2 {:.2f} at {:.12g} Hz", found.Sums[best].z2(), found.frequency(best)));
}

void addEvent(Fold &folded, size_t row, double seconds)
{
    const double turns = turnsOf(seconds, folded.FrequencyHz);
    const auto bin = static_cast<uint64_t>(turns * static_cast<double>(folded.NumBins));
    ++folded.Counts[row * folded.NumBins + std::min(bin, folded.NumBins - 1)];
    addPhase(folded.Sums[row], turns);
}

void prepare(Fold &folded, Search &found, const FoldOptions &options, const Recording &recording)
{
    if (!options.Search.empty()) {
        search(found, options, recording);
        folded.FrequencyHz = found.frequency(found.best());
    }
    folded.Counts.assign(static_cast<size_t>(recording.NumRows) * folded.NumBins, 0);
    folded.Sums.assign(static_cast<size_t>(recording.NumRows), {});
}

std::string foldCsv(const Fold &folded, const Measured &measured)
{
    std::vector<std::string> notes = firstNotes(measured, foldSchema);
    notes.push_back(fmt::format("frequency {:.15g} Hz, period {:.15g} ps; phase of the first event 0",
                                folded.FrequencyHz, 1 / (folded.FrequencyHz * secondsPerPs)));
    for (int64_t row = 0; row < measured.From.NumRows; ++row)
        if (const PhaseSums &sums = folded.Sums[static_cast<size_t>(row)]; sums.Count > 0)
            notes.push_back(fmt::format("{}: {}, Z2 = {:.6g} with 2 harmonics", rowName(measured.From, row),
                                        counted(sums.Count, "event"), sums.z2()));
    notes.push_back(lastNote(measured));
    std::vector<double> phases(folded.NumBins);
    for (size_t bin = 0; bin < phases.size(); ++bin)
        phases[bin] = static_cast<double>(bin) / static_cast<double>(folded.NumBins);
    std::vector<Column> columns = {{"phase", phases}};
    for (int64_t row = 0; row < measured.From.NumRows; ++row)
        columns.push_back({columnName(measured.From, row), folded.row(row)});
    return csvText(notes, columns);
}

boost::json::object foldJson(const Fold &folded, const Search &found, const Measured &measured)
{
    boost::json::object result = firstKeys(measured, foldSchema);
    result["frequencyHz"] = folded.FrequencyHz;
    result["periodPs"] = 1 / (folded.FrequencyHz * secondsPerPs);
    result["bins"] = folded.NumBins;
    result["channels"] = channelsJson(measured.From, [&](int64_t row) { return folded.row(row); });
    for (size_t row = 0; row < folded.Sums.size(); ++row)
        result["channels"].as_array()[row].as_object()["z2"] = folded.Sums[row].z2();
    result["search"] = nullptr;
    if (found.Sums.empty()) return result;
    boost::json::array z2;
    for (const PhaseSums &sums : found.Sums) z2.push_back(sums.z2());
    result["search"] = {{"fromHz", found.FromHz}, {"stepHz", found.StepHz}, {"z2", std::move(z2)}};
    return result;
}

Plot foldPlot(const Fold &folded, const Measured &measured)
{
    Plot plot;
    plot.Title = plotTitle(measured.From);
    plot.XLabel = fmt::format("Phase in a period of {}", timeText(1 / (folded.FrequencyHz * secondsPerPs)));
    plot.YLabel = "Counts";
    plot.XMax = 1;
    for (int64_t row = 0; row < measured.From.NumRows; ++row)
        if (!isAllZero(folded.row(row)))
            plot.Curves.push_back(binCurve(rowName(measured.From, row), folded.row(row), 0,
                                           1 / static_cast<double>(folded.NumBins)));
    return plot;
}

Measurement stepsOf(const FoldOptions &options, Fold &folded, Search &found, EventSeconds &events)
{
    return {.Prepare = [&](const Recording &recording) { prepare(folded, found, options, recording); },
            .Start = [&](const RunStart &run) { startEvents(events, run); },
            .Take = [](bool) {}, // what was fetched is counted
            .IsEmpty = [&] { return isAllZero(folded.Counts); },
            .Needs = "events",
            .Csv = [&](const Measured &measured) { return foldCsv(folded, measured); },
            .Json = [&](const Measured &measured) { return foldJson(folded, found, measured); },
            .Plot = [&](const Measured &measured) { return foldPlot(folded, measured); },
            .Fetch =
                [&](const Recording &recording) {
                    return countBlock(events, recording,
                                      [&](size_t row, double seconds) { addEvent(folded, row, seconds); });
                },
            .FileKeys =
                [&](const Measured &measured) {
                    return boost::json::object{
                        {"rates", ratesOfRows(measured.From, secondsOf(measured),
                                              [&](int64_t row) { return folded.row(row); })}};
                }};
}

int runFold(const FoldOptions &options, const HostOptions &host)
{
    checkFoldOptions(options);
    Search found;
    Fold folded{.NumBins = options.Bins, .Counts = {}, .Sums = {}};
    EventSeconds events;
    if (!options.Search.empty())
        found = searchOf(options);
    else if (folded.FrequencyHz = frequencyOf(options); !(folded.FrequencyHz > 0))
        throw Failure(Exit::Usage, "--period, --frequency: above 0");
    return measure(options.Measure, host, stepsOf(options, folded, found, events));
}

constexpr ResultHelp foldHelp = {
    .About =
        R"(Counts the events of each channel by their phase in a period, from the first event on. Z2 says how
far the phases are from even: 2 / n times the sum of |sum of exp(2 pi i k phase)|^2 for k = 1 and 2. Even
phases give 4 on average, and more than 20 once in 2000 times.

--search FROM,TO,STEP looks at these frequencies by the events of --chan, and takes the one of the largest
Z2. It reads the recording twice, and takes the time of events x frequencies. A step of a tenth of 1 / duration
misses no peak.)",
    .Csv = "a line per bin: phase (its start), then the\ncounts of sync, ch1, ch2, ...; Z2 in the comments",
    .Schema = foldSchema,
    .Keys = R"(  frequencyHz   of the fold
  periodPs      1 / frequency
  bins          number of bins of a period
  channels      [{row, name, total, counts [bins], z2}]
  search        null, or {fromHz, stepHz, z2 [of each frequency]})",
    .Examples = R"(  tessel fold pulsar.tgx --period 151.604828ms
  tessel fold pulsar.tgx --search 6.594Hz,6.598Hz,0.000001Hz --json | jq .frequencyHz)"};

} // namespace

Command addFold(CLI::App &program)
{
    const auto options = std::make_shared<FoldOptions>();
    CLI::App *command =
        program.add_subcommand("fold", "Count events by their phase in a period, or search one");
    addMeasurementOptions(*command, options->Measure);
    options->Measure.CountsDtimes = true;
    addUpdateOptions(*command, options->Measure.Updates);
    command->add_option("--period", options->Period, "Period to fold with [ps]")->type_name("TIME");
    command->add_option("--frequency", options->Frequency, "The same as a rate [Hz]")->type_name("RATE");
    command->add_option("--search", options->Search, "Frequencies to look at [Hz]")->type_name("FROM,TO,STEP");
    asChannel(command->add_option("--chan", options->Chan, "Channel that --search goes by"))
        ->capture_default_str();
    asNumber(command->add_option("--bins", options->Bins, "Bins of a period"), 1, 1'000'000)
        ->capture_default_str();
    command->footer(helpText(foldHelp));
    return {command, [options](const HostOptions &host) { return runFold(*options, host); }};
}

} // namespace Tessel::Cli
