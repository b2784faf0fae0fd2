// `tessel record`: what an instrument sends, in a file.
#include "commands/commands.h"
#include "commands/event_counter.h"
#include "commands/result_head.h"
#include "commands/shown_run.h"
#include "program/exit_codes.h"
#include "program/frame_table.h"
#include "program/options.h"
#include "program/output.h"
#include "program/progress.h"
#include "program/units.h"
#include "program/until.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <memory>

namespace Tessel::Cli {

namespace {

struct RecordOptions
{
    MeasureOptions Measure; // RecordFile: where to
    std::vector<std::string> Until;
    std::string Comment;
};

constexpr const char *recordSchema = "tessel.record/1";
constexpr uint32_t noTagIndex = 0xFFFFFFFF;

std::vector<Until> readUntil(const RecordOptions &options)
{
    std::vector<Until> all;
    for (const std::string &text : options.Until) all.push_back(parseUntil(text));
    return all;
}

// The text of the first that is reached; empty: none.
std::string reachedOf(const std::vector<Until> &all, const Reached &reached)
{
    for (const Until &until : all)
        if (isReached(until, reached)) return until.Text;
    return "";
}

// `start`: when nothing had been read yet, which is kept up.
Reached reachedNow(const EventCounter &counter, const Measured &measured,
                   std::chrono::steady_clock::time_point &start)
{
    const auto records = runDescription().at("NumRecs").to_number<uint64_t>();
    if (records == 0) start = std::chrono::steady_clock::now();
    return {.Records = records,
            .Bytes = static_cast<double>(fileBytes(measured.Into->Path)),
            .Seconds = secondsSince(start),
            .Events = counter.Totals};
}

// Events of each channel, and how fast an instrument says that they come.
std::vector<std::vector<std::string>> tableOf(const Measured &measured, const EventCounter &counter,
                                              const CountRates &rates)
{
    std::vector<std::vector<std::string>> lines = {{"Channel", "Events", "Rate"}};
    for (size_t row = 0; row < counter.Totals.size(); ++row) {
        std::string rate;
        if (row == 0) rate = rateText(rates.Sync);
        if (row > 0 && row <= rates.Inputs.size()) rate = countRateText(rates.Inputs[row - 1]);
        lines.push_back(
            {rowName(measured.From, static_cast<int64_t>(row)), fmt::format("{}", counter.Totals[row]), rate});
    }
    return lines;
}

void drawRecording(Frame &frame, const LiveState &state, const Measured &measured, const EventCounter &counter)
{
    const int row = putItems(frame, 0, std::max(1, frame.Rows / 4), statusItems(state, measured));
    const int gap = frame.Rows > 10 ? 1 : 0;
    putTable(frame, {row + gap, 0, frame.Rows - row - gap, frame.Columns},
             tableOf(measured, counter, state.Rates));
}

boost::json::object asJson(const Measured &measured, const EventCounter &counter)
{
    boost::json::object result = firstKeys(measured, recordSchema);
    result["endedBy"] = nullptr;
    if (!measured.Run.Reached.empty()) result["endedBy"] = measured.Run.Reached;
    boost::json::array channels;
    for (size_t row = 0; row < counter.Totals.size(); ++row)
        channels.push_back({{"row", row},
                            {"name", rowName(measured.From, static_cast<int64_t>(row))},
                            {"total", counter.Totals[row]}});
    result["channels"] = std::move(channels);
    return result;
}

int runRecord(const RecordOptions &options, const HostOptions &host)
{
    const MeasureOptions &measure = options.Measure;
    checkUpdateOptions(measure.Updates);
    const std::vector<Until> ends = readUntil(options);
    if (!host.namesInstrument()) throw Failure(Exit::Usage, "record needs an instrument: --device ID or --sim");
    const Session session(host);
    checkFiles(measure, host);
    Measured measured = openForMeasuring(measure, host);
    for (const Until &until : ends) checkUntil(until, measured.From);
    if (!options.Comment.empty()) addStringTag("File_Comment", options.Comment.c_str(), noTagIndex);
    EventCounter counter;
    auto start = std::chrono::steady_clock::now();
    runShown(
        measure, host,
        {.Start = [&](const RunStart &run) { startCounting(counter, measured.From, run); },
         .Take = [&](bool hasEnded) { addNewBins(counter, hasEnded); },
         .Draw = [&](Frame &frame, const LiveState &state) { drawRecording(frame, state, measured, counter); },
         .Json = [&] { return asJson(measured, counter); },
         .EndsBy =
             [&] {
                 addNewBins(counter, false);
                 return reachedOf(ends, reachedNow(counter, measured, start));
             }},
        measured);
    noteSpeed(measured.Run);
    if (measure.Result.Json && !measure.Updates.JsonLines) writeResult("", jsonText(asJson(measured, counter)));
    return reportRun(measured);
}

constexpr const char *recordFooter =
    R"(Records the stream of the instrument as it is, T3 or T2, without --for and --until until Ctrl-C, which
ends a recording cleanly: the file is whole, the exit code 130. On a terminal it shows the events of
each channel, rates, size of the file, and what was lost (not with --quiet). A chain doesn't change
what is recorded, but has its channels counted.

--until ends it as soon as one of these is reached, a moment after it:
  records>1e9   records in the file; 500k, 2M and 1G can be written too
  ch1>1e6       events of a channel: ch1, ch2, ..., those of the chain too; in T2 also sync
  size>2GB      size of the file: B, kB, MB, GB, TB
  time>60s      time since the first records, without a unit in s
Given several times, the first that is reached counts. --for is exact: the instrument's own clock.

A file that is there is replaced only with --force, and goes when the run starts. To measure beside
it, give --record OUT.tgx to the measuring command: one run does both.

JSON (--json, and at each update --json-lines): schema (tessel.record/1), file (null), device, mode,
chain (if there is one), run (as of a measurement), and
  recorded  {file, bytes, closed (its header counts all records)}
  endedBy   which --until was reached, else null
  channels  [{row, name, total (events)}]

Examples:
  tessel record run.tgx --sim --for 60s
  tessel record run.tgx --device 1029384 --mode t2 --until 'records>1e9' --until 'time>10min'
  tessel record pairs.tgx --sim --mode t2 --chain 'coincidence(1,2; 2ns; keep)' --until 'ch5>1000'
  tessel histogram --sim --for 60s --record run.tgx --live -o decay.csv)";

} // namespace

Command addRecord(CLI::App &program)
{
    const auto options = std::make_shared<RecordOptions>();
    CLI::App *command = program.add_subcommand("record", "Record what an instrument sends");
    MeasureOptions &measure = options->Measure;
    measure.RecordOption = "OUT";
    measure.RunsOn = true;
    measure.Updates.Live = true;
    command->add_option("OUT", measure.RecordFile, "The file to write (.tgx)")->type_name("")->required();
    addInstrumentOptions(*command, measure, "until Ctrl-C");
    command->add_option("--until", options->Until, "End when this is reached; several times")
        ->type_name("QUANTITY>NUMBER")
        ->allow_extra_args(false);
    addChainOption(*command, measure.Chain);
    command->add_option("--comment", options->Comment, "A comment for the header of the file")
        ->type_name("TEXT");
    addUpdateOptions(*command, measure.Updates, false);
    command->add_flag("--json", measure.Result.Json, "Write what was recorded as one JSON object");
    command->add_flag("--force", measure.Result.Force, "Replace the file if it is there");
    command->footer(recordFooter);
    return {command, [options](const HostOptions &host) { return runRecord(*options, host); }};
}

} // namespace Tessel::Cli
