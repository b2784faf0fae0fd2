// The frame of the measuring commands. The main thread's.
#include "commands/measure.h"

#include "commands/live_view.h"
#include "commands/several.h"
#include "commands/shown_run.h"
#include "jobs/result_sum.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/output.h"
#include "program/output_file.h"
#include "program/settings.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <unistd.h>

namespace Tessel::Cli {

void addChannelPair(CLI::App &command, ChannelPair &channels)
{
    asChannel(command.add_option("--chan1", channels.First,
                                 "First channel: 0 sync (T2), 1.. inputs, then those of the chain"))
        ->capture_default_str();
    asChannel(
        command.add_option("--chan2", channels.Second, "Second channel; the same one twice: autocorrelation"))
        ->capture_default_str();
}

namespace {

// A picture that stays on the terminal stands for the text that would follow it there.
bool writesText(const MeasureOptions &options, bool drewLive)
{
    const bool toOutput = isStandardOutput(options.Result.File);
    if (toOutput && options.Updates.JsonLines) return false;
    if (toOutput && drewLive && isatty(standardOutput())) return false;
    return wantsText(options.Result);
}

// Once, after the run.
void lookAtResult(Measured &measured, const MeasureOptions &options, const Measurement &measurement)
{
    measured.IsLookedAt = true;
    if (measurement.Notes)
        for (std::string &text : measurement.Notes(measured)) measured.Notes.push_back(std::move(text));
    if (options.Command) measured.Files.push_back(fileEntry(measured, measurement));
}

} // namespace

Measured measureSource(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement)
{
    Measured measured = openForMeasuring(options, host);
    measured.DrawsLive = drawsLive(options.Updates, host);
    measurement.Prepare(measured.From);
    runShown(options, host,
             {.Start = measurement.Start,
              .Take = measurement.Take,
              .Draw =
                  [&](Frame &frame, const LiveState &state) {
                      drawMeasuring(frame, state, measured, measurement.Plot(measured));
                  },
              .Json =
                  [&] {
                      if (measured.Run.Ended) lookAtResult(measured, options, measurement);
                      return measurement.Json(measured);
                  },
              .Fetch = [&] { return measurement.Fetch && measurement.Fetch(measured.From); }},
             measured);
    if (measured.From.MeasMode != 0) noteSpeed(measured.Run);
    if (!measured.IsLookedAt) lookAtResult(measured, options, measurement);
    for (const std::string &text : measured.Notes) warn(text);
    return measured;
}

int writeMeasured(const MeasureOptions &options, const Measurement &measurement, const Measured &measured,
                  const std::function<int()> &report)
{
    const std::string fault = measurement.Fault ? measurement.Fault() : "";
    if (!fault.empty()) warn(fault);
    if (measurement.IsEmpty()) warn(fmt::format("nothing was counted: that needs {}", measurement.Needs));
    if (writesText(options, measured.DrawsLive))
        writeResult(options.Result.File,
                    options.Result.Json ? jsonText(measurement.Json(measured)) : measurement.Csv(measured));
    if (!options.Result.Plot.File.empty()) drawResult(options.Result, measurement.Plot(measured));
    const int code = report();
    return code == 0 && !fault.empty() ? static_cast<int>(Exit::DataLost) : code;
}

int measure(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement)
{
    checkPlot(options.Result.Plot);
    checkUpdateOptions(options.Updates);
    const Session session(host);
    checkFiles(options, host);
    if (options.Files.size() > 1) return measureSeveral(options, host, measurement);
    MeasureOptions one = options;
    if (!options.Files.empty()) one.File = options.Files.front();
    const Measured measured = measureSource(one, host, measurement);
    return writeMeasured(one, measurement, measured, [&] { return reportRun(measured); });
}

void drawResult(const ResultOptions &options, const Plot &plot)
{
    try {
        drawPlot(plot, options.Plot);
        note(fmt::format("{} drawn", visibleText(options.Plot.File)));
    } catch (const Failure &failure) {
        if (!wantsText(options)) throw;
        warn(failure.what());
    }
}

std::string helpText(const ResultHelp &help)
{
    constexpr std::string_view updates =
        "\n\n--live shows rates and result in the terminal as they grow, at any width, with braille where\n"
        "LC_ALL, LC_CTYPE or LANG ask for UTF-8 and NO_COLOR isn't set, else in ASCII. What it shows last\n"
        "stays there in place of the CSV. It is off where standard error is no terminal, or TERM is dumb.\n\n"
        "--json-lines writes the JSON below at each update, one line each, with update (from 1), final,\n"
        "seconds, and of an instrument rates {sync, inputs} in counts per second; the last line, where\n"
        "final is true, has the result. While the run goes on, run.stopReason is null.";
    return fmt::format(
        "{}{}\n\n"
        "CSV: comment lines with '#', a line of names, {}\n\n"
        "JSON: schema ({}), program, job (docs/jobs.md), file, device, mode, chain (if there is one),\n"
        "rows [{{name, column}}] of the channels,\n"
        "run {{recordsRead, recordsInFile, recording (closed, not closed, cut short), complete,\n"
        "stopReason, verdict (clean, lossy: something is missing, invalid: times may be wrong too),\n"
        "losses {{place: {{unit, occasions, lost (null: nobody knows), first, last [s]}}}},\n"
        "stepsBack (events read after a later one), largestStepPs (how far they go back), unsorted (null,\n"
        "or with --sort those too late for it),\n"
        "recordingLosses (null, or {{verdict, losses}} of the recording that is read or written)}} (of an\n"
        "instrument file, recordsInFile and recording are null), of an instrument live {{acquisitionMs,\n"
        "liveTimeMs, meanSyncRate [Hz], startRates and rates (at the end) {{sync, inputs}} [cps], instrument\n"
        "(all that is set on it)}}, with --record recorded {{file, bytes, closed}},\n"
        "notes [what to know before one relies on the result],\n"
        "files [{{file, bytes, crc32 (of its first and last 64 KiB), device, seconds, run, notes,\n"
        "rates (counts per second), and what of it is in a sum}}]; of several files, file is null and run has\n"
        "what is of all together; and\n{}\n\n"
        "Examples:\n{}",
        help.About, help.HasUpdates ? updates : "", help.Csv, help.Schema, help.Keys, help.Examples);
}

void noteSpeed(const Outcome &outcome)
{
    note(fmt::format("{} in {:.2f} s, {} records/s", counted(outcome.NumRead, "record"), outcome.RunSeconds,
                     countText(static_cast<double>(outcome.NumRead) / std::max(outcome.RunSeconds, 1e-9))));
}

namespace {

// Of an instrument its id.
std::string nameIn(const boost::json::object &file)
{
    return std::string((file.at("file").is_null() ? file.at("device") : file.at("file")).as_string());
}

} // namespace

std::vector<std::string> firstNotes(const Measured &measured, std::string_view schema)
{
    const Recording &recording = measured.From;
    std::vector<std::string> lines = {std::string(schema)};
    if (!recording.isLive() && !measured.isSum())
        lines.push_back(fmt::format("file: {}", visibleText(recording.Path)));
    for (const auto &file : measured.isSum() ? measured.Files : boost::json::array())
        lines.push_back(fmt::format("file: {}", visibleText(nameIn(file.as_object()))));
    lines.push_back(recording.Id.empty() ? modeText(recording.MeasMode)
                                         : fmt::format("device: {}, {}", visibleText(recording.Id),
                                                       modeText(recording.MeasMode)));
    for (std::string &stage : chainNotes(measured.Chain, !measured.isSum())) lines.push_back(std::move(stage));
    for (const std::string &text : measured.Notes) lines.push_back("note: " + text);
    return lines;
}

namespace {

std::string liveNote(const Measured &measured)
{
    const Outcome &run = measured.Run;
    const int32_t runForMs = measured.From.RunForMs;
    std::string text =
        measured.From.MeasMode == 0 ? std::string("counted by the instrument") : counted(run.NumRead, "record");
    const bool wasCut = run.Signal != 0 || !run.Reached.empty();
    if (runForMs != longestRunMs) text += fmt::format(" in {} ms{}", runForMs, wasCut ? " at most" : "");
    if (!run.Reached.empty()) text += fmt::format(", ended at {}", visibleText(run.Reached));
    return text + (run.Signal ? ", stopped by the user" : "");
}

// Which files lost something stands beside how much was read of all.
std::string sumNote(const Measured &measured)
{
    const boost::json::object &run = measured.SumRun;
    std::vector<std::string> doubtful;
    for (const auto &file : measured.Files)
        if (!isCleanAndWhole(file.at("run").as_object()))
            doubtful.push_back(visibleText(nameIn(file.as_object())));
    return fmt::format("{} records read of {} recordings; {}", run.at("recordsRead").to_number<uint64_t>(),
                       measured.Files.size(),
                       doubtful.empty() ? std::string("clean")
                                        : fmt::format("not whole or not clean: {}", fmt::join(doubtful, ", ")));
}

std::string readText(const Measured &measured)
{
    if (measured.From.isLive()) return liveNote(measured);
    return fmt::format("{} of {} read{}", measured.Run.NumRead, counted(measured.From.NumRecords, "record"),
                       measured.Run.Signal ? ", stopped by the user: a partial result" : "");
}

} // namespace

std::string lastNote(const Measured &measured)
{
    if (measured.isSum()) return sumNote(measured);
    const std::vector<std::string> losses = lossLines(measured.Run.Losses);
    return fmt::format("{}; {}", readText(measured),
                       losses.empty() ? "clean" : fmt::format("{}", fmt::join(losses, "; ")));
}

boost::json::object recordingKeys(const Measured &measured, std::string_view schema)
{
    const Recording &recording = measured.From;
    boost::json::object keys = {{"schema", schema}, {"program", "tessel " TESSEL_VERSION}};
    if (!measured.Job.empty()) keys["job"] = measured.Job;
    keys["file"] = nullptr;
    if (measured.isSum() && measured.Files.size() == 1) keys["file"] = measured.Files.front().at("file");
    if (!measured.isSum() && !recording.isLive()) keys["file"] = jsonName(recording.Path);
    keys["device"] = nullptr;
    if (!recording.Id.empty()) keys["device"] = recording.Id;
    keys["mode"] = modeText(recording.MeasMode);
    if (!measured.Chain.empty()) keys["chain"] = chainJson(measured.Chain, !measured.isSum());
    return keys;
}

boost::json::object ratesJson(const CountRates &rates)
{
    return {{"sync", rates.Sync}, {"inputs", boost::json::array(rates.Inputs.begin(), rates.Inputs.end())}};
}

namespace {

// With what a run on the same light can be repeated.
boost::json::object liveJson(const Measured &measured)
{
    const boost::json::object run = runDescription();
    return {{"acquisitionMs", run.at("AcqTime")},    {"liveTimeMs", run.at("StopAfter")},
            {"meanSyncRate", run.at("AveSyncRate")}, {"startRates", ratesJson(measured.From.Rates)},
            {"rates", ratesJson(measured.Rates)},    {"instrument", measured.From.Config}};
}

} // namespace

boost::json::object recordedJson(const Measured &measured)
{
    const std::string &path = measured.Run.Ended ? measured.Written.Path : measured.Into->Path;
    const uint64_t bytes = measured.Run.Ended ? measured.Written.Bytes : fileBytes(path);
    return {{"file", path}, {"bytes", bytes}, {"closed", measured.Written.IsClosed}};
}

namespace {

boost::json::array rowsJson(const Recording &recording)
{
    boost::json::array rows;
    for (int64_t row = 0; row < recording.NumRows; ++row)
        rows.push_back({{"name", rowName(recording, row)}, {"column", columnName(recording, row)}});
    return rows;
}

} // namespace

boost::json::object firstKeys(const Measured &measured, std::string_view schema)
{
    boost::json::object keys = recordingKeys(measured, schema);
    keys["rows"] = rowsJson(measured.From);
    keys["run"] = measured.isSum() ? measured.SumRun : outcomeJson(measured.From, measured.Run);
    keys["notes"] = boost::json::array(measured.Notes.begin(), measured.Notes.end());
    if (!measured.Files.empty()) keys["files"] = measured.Files;
    if (measured.From.isLive() && measured.Run.Ended) keys["live"] = liveJson(measured);
    if (measured.Into) keys["recorded"] = recordedJson(measured);
    return keys;
}

uint64_t total(std::span<const uint32_t> counts)
{
    return std::accumulate(counts.begin(), counts.end(), uint64_t(0));
}

boost::json::array channelsJson(const Recording &recording, const RowCounts &countsOf)
{
    boost::json::array channels;
    for (int64_t row = 0; row < recording.NumRows; ++row)
        channels.push_back({{"row", row},
                            {"name", rowName(recording, row)},
                            {"total", total(countsOf(row))},
                            {"counts", jsonArray({"", countsOf(row)})}});
    return channels;
}

bool isAllZero(std::span<const uint32_t> counts)
{
    return std::ranges::all_of(counts, [](uint32_t count) { return count == 0; });
}

bool isAllZero(std::span<const double> values)
{
    return std::ranges::none_of(values, [](double value) { return std::isfinite(value) && value != 0; });
}

std::string plotTitle(const Recording &recording)
{
    const std::filesystem::path path(recording.Path);
    return fmt::format("{}, {}", path.filename().string(), modeText(recording.MeasMode));
}

void checkChannel(const char *option, int channel, const Recording &recording)
{
    if (channel < recording.NumRows) return;
    throw Failure(Exit::Usage, fmt::format("{} {}: the recording has channels 0 (sync) to {}", option, channel,
                                           recording.NumRows - 1));
}

void checkChannels(const ChannelPair &channels, const Recording &recording)
{
    checkChannel("--chan1", channels.First, recording);
    checkChannel("--chan2", channels.Second, recording);
}

} // namespace Tessel::Cli
