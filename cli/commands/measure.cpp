// The frame of the measuring commands. The main thread's.
#include "commands/measure.h"

#include "commands/live_view.h"
#include "commands/result_head.h"
#include "commands/several.h"
#include "commands/shown_run.h"
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

#include <algorithm>
#include <cmath>
#include <filesystem>
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
