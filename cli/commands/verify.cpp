// `tessel verify` and `tessel repair`: whether a recording can be trusted, and a whole one of one that was cut
// off.
#include "commands/commands.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/options.h"
#include "program/output.h"
#include "program/output_file.h"
#include "program/session.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

using boost::json::object;
using boost::json::value;

struct VerifyOptions
{
    std::string File;
    ResultOptions Result;
};

struct RepairOptions
{
    std::string File, Repaired;
    bool Force = false;
};

Exit exitCodeOfVerdict(const object &found)
{
    const auto &verdict = found.at("verdict").as_string();
    if (verdict == "clean") return Exit::Success;
    return verdict == "lossy" ? Exit::DataLost : Exit::Failed;
}

// A number of the report as a time; empty if it is unknown.
std::string timeIn(const object &found, const char *key, double unitPs)
{
    const value *number = found.if_contains(key);
    return number && !number->is_null() ? timeText(number->to_number<double>() * unitPs) : "";
}

// Each row of text; one without content is left out.
struct VerdictTable
{
    fmt::memory_buffer Text;

    void row(std::string_view name, std::string_view content)
    {
        if (!content.empty()) fmt::format_to(std::back_inserter(Text), "  {:<18} {}\n", name, content);
    }
    void row(std::string_view name, const value &count)
    {
        if (!count.is_null()) row(name, fmt::format("{}", count.to_number<uint64_t>()));
    }
};

std::string verdictTable(const std::string &path, const object &found)
{
    VerdictTable table;
    fmt::format_to(std::back_inserter(table.Text), "{}: {}\n", visibleText(path),
                   std::string_view(found.at("verdict").as_string()));
    for (const value &fault : found.at("faults").as_array())
        table.row(fault.at("fault").as_string(), visibleText(fault.at("text").as_string()));
    table.row("first in record", found.at("firstFaultyRecord"));
    if (found.at("mode").is_null()) return fmt::to_string(table.Text);
    const object &events = found.at("events").as_object();
    table.row("records", found.at("records"));
    table.row("time tag", timeIn(found, "timeTagPs", 1));
    table.row("sync period", timeIn(found, "syncPeriodPs", 1));
    table.row("duration", timeIn(found, "durationMs", 1e9));
    table.row("sync events", events.at("sync"));
    for (size_t i = 0; i < events.at("inputs").as_array().size(); ++i)
        table.row(fmt::format("input {}", i + 1), events.at("inputs").at(i));
    table.row("markers", events.at("markers"));
    table.row("overflow records", events.at("overflows"));
    return fmt::to_string(table.Text);
}

std::string verdictText(const VerifyOptions &options, const object &found)
{
    if (!options.Result.Json) return verdictTable(options.File, found);
    object result = {{"schema", "tessel.verify/1"}, {"file", jsonName(options.File)}};
    result.insert(found.begin(), found.end());
    return jsonText(result);
}

int runVerify(const VerifyOptions &options, const HostOptions &host)
{
    const Session session(host);
    checkOutputs({options.File, host.IniPath}, outputsOf(options.Result), options.Result.Force);
    checkFile(options.File);
    const object found = fileReport(options.File, options.File);
    writeResult(options.Result.File, verdictText(options, found));
    return static_cast<int>(exitCodeOfVerdict(found));
}

// What the library writes beside a recording that lost something.
std::string sideFileOf(const std::string &recording)
{
    return std::filesystem::path(recording).replace_extension(".losses.json").string();
}

// The copy is verified before it takes its place.
int runRepair(const RepairOptions &options, const HostOptions &host)
{
    const Session session(host);
    checkOutputs({options.File, host.IniPath}, {{"OUT", options.Repaired}}, options.Force);
    checkFile(options.File);
    OutputFile out(options.Repaired);
    if (!out.WorkName) throw Failure(Exit::Usage, fmt::format("{}: not a file", out.Shown));
    if (!tessel_repairFile(LibraryPath(options.File).Text.c_str(), LibraryPath(out.WorkName).Text.c_str()))
        throw Failure(Exit::Failed, visibleText(libraryError()));
    const object found = fileReport(out.WorkName, options.Repaired);
    const std::string side = sideFileOf(out.WorkName);
    complete(out);
    std::rename(side.c_str(), sideFileOf(out.Target).c_str()); // if there is one
    note(fmt::format("{}: {}", out.Shown, counted(found.at("records").to_number<uint64_t>(), "record")));
    for (const value &fault : found.at("faults").as_array())
        warn(fmt::format("{}: {}", out.Shown, visibleText(fault.at("text").as_string())));
    return static_cast<int>(exitCodeOfVerdict(found));
}

constexpr const char *verifyFooter =
    R"(The verdict, and the exit code:
  clean    0  nothing is wrong
  lossy    4  it can be replayed, but something is missing or unsure
  invalid  1  no recording, or what a replay gives isn't what was measured

What is looked at: the header's CRC, the number of records against the header, empty or broken
records at the end, sync period or resolution, channels that the device hasn't got, times that go
back, overflow records that don't move time on or move it beyond the end of the run, and what the
side file NAME.losses.json says.

JSON: schema (tessel.verify/1), file, verdict, faults [{fault, text}], fileSize, headerSize, crc,
mode, records, recordsByHeader, partBytes, emptyRecords, events {sync, inputs, markers, overflows,
invalid, ignored}, stepsBack, idleOverflows, firstFaultyRecord (from 0), timeTagPs or
syncPeriodPs, durationMs, runMs, losses. What is unknown is null.

Examples:
  tessel verify decay.tgx
  tessel verify decay.tgx --json | jq -r '.faults[].text'
  tessel verify decay.tgx || tessel repair decay.tgx whole.tgx)";

constexpr const char *repairFooter =
    R"(OUT gets the whole records of FILE, without an empty end, and its header with their number and a new
CRC. If the recording was never closed, the header also gets its length and the rates of the inputs
as the records tell them. FILE is only read. OUT is verified: exit code 0 if it is clean, 4 if a
fault is left that a repair can't mend.

Examples:
  tessel repair crashed.tgx whole.tgx)";

} // namespace

Command addVerify(CLI::App &program)
{
    const auto options = std::make_shared<VerifyOptions>();
    CLI::App *command = program.add_subcommand("verify", "Check a recording: header, records, times");
    addRecordingArgument(*command, options->File);
    addOutputOptions(*command, options->Result, "a table");
    command->footer(verifyFooter);
    return {command, [options](const HostOptions &host) { return runVerify(*options, host); }};
}

Command addRepair(CLI::App &program)
{
    const auto options = std::make_shared<RepairOptions>();
    CLI::App *command = program.add_subcommand("repair", "Make a whole recording of one that a crash cut off");
    addRecordingArgument(*command, options->File);
    command->add_option("OUT", options->Repaired, "The recording to write (.tgx)")->type_name("")->required();
    command->add_flag("--force", options->Force, "Replace OUT also if it is a recording");
    command->footer(repairFooter);
    return {command, [options](const HostOptions &host) { return runRepair(*options, host); }};
}

} // namespace Tessel::Cli
