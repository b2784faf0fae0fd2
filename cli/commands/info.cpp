// `tessel info`: what a recording says about its device and its last run, and its header.
#include "commands/commands.h"
#include "program/console.h"
#include "program/losses.h"
#include "program/options.h"
#include "program/output.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

using boost::json::object;
using boost::json::value;

struct InfoOptions
{
    std::string File;
    ResultOptions Result;
    bool Counts = false;
};

// A recording that no instrument made: its levels are those of no input.
bool isOfInstrument(const Recording &recording)
{
    return !recording.Config.at("PartNo").as_string().empty() ||
           !recording.Config.at("Version").as_string().empty();
}

std::string textOf(const value &item)
{
    if (item.is_double()) return fmt::format("{:.10g}", item.as_double());
    return visibleText(item.is_string() ? std::string(item.as_string()) : boost::json::serialize(item));
}

double numberOf(const object &record, const char *key)
{
    const value *found = record.if_contains(key);
    return found && found->is_number() ? found->to_number<double>() : 0;
}

void row(fmt::memory_buffer &text, std::string_view name, std::string_view content)
{
    if (!content.empty()) fmt::format_to(std::back_inserter(text), "  {:<18} {}\n", name, content);
}

void heading(fmt::memory_buffer &text, std::string_view title)
{
    fmt::format_to(std::back_inserter(text), "{}{}\n", text.size() ? "\n" : "", title);
}

void addFile(fmt::memory_buffer &text, const Recording &recording)
{
    const auto &header = recording.Header;
    heading(text, "File");
    row(text, "Path", visibleText(recording.Path));
    row(text, "Format", textOf(header.at("magic")) + " " + textOf(header.at("version")));
    row(text, "Size", byteText(numberOf(header, "fileSize")));
    row(text, "Records", fmt::format("{}", recording.NumRecords));
    if (recording.ClaimedRecords >= 0 &&
        static_cast<uint64_t>(recording.ClaimedRecords) != recording.NumRecords)
        row(text, "", fmt::format("(the header says {})", recording.ClaimedRecords));
    row(text, "Recording", endingText(recording.Ending));
    for (const std::string &line : lossLines(lossesNow())) row(text, "Losses", line);
}

void addDevice(fmt::memory_buffer &text, const Recording &recording)
{
    const object &config = recording.Config;
    const bool isT3 = recording.MeasMode == 3;
    heading(text, "Device");
    row(text, "Id", visibleText(recording.Id));
    row(text, "Model", textOf(config.at("Model")));
    row(text, "Part number", textOf(config.at("PartNo")));
    row(text, "Version", textOf(config.at("Version")));
    row(text, "Mode", fmt::format("T{}", recording.MeasMode));
    row(text, "Base resolution", timeText(numberOf(config, "BaseResolution")));
    row(text, "Resolution", fmt::format("{:.12g} ps", recording.ResolutionPs));
    if (recording.UsedResolutionPs != recording.ResolutionPs)
        row(text, "of a replay", fmt::format("{:.12g} ps", recording.UsedResolutionPs));
    row(text, "Histogram bins", textOf(config.at("NumBins")));
    if (isT3 && numberOf(recording.Description, "AveSyncRate") > 0)
        row(text, "Sync rate", rateText(numberOf(recording.Description, "AveSyncRate")));
    if (recording.UsedPeriodPs > 0) {
        row(text, "Sync period used", fmt::format("{:.12g} ps", recording.UsedPeriodPs));
        row(text, "of the file", fmt::format("{:.12g} ps", recording.MadePeriodPs));
    }
    if (!isOfInstrument(recording)) row(text, "Made by", "a program, not by an instrument");
    row(text, "Sync divider", textOf(config.at("SyncDiv")));
    row(text, "Comment", textOf(config.at("Comment")));
    row(text, "Input channels", textOf(config.at("NumChans")));
}

// A recording that no instrument made has names alone.
void addChannels(fmt::memory_buffer &text, const Recording &recording)
{
    const auto &channels = recording.Config.at("ChansCfg").as_array();
    if (channels.empty()) return;
    heading(text, "Channels");
    const auto line = [&](const auto &...cells) {
        fmt::format_to(std::back_inserter(text), "  {:<5} {:<24} {:<8} {:>10} {:>10} {:>12}\n", cells...);
    };
    const bool hasLevels = isOfInstrument(recording);
    if (hasLevels) line("Row", "Name", "Enabled", "Trigger", "Level/mV", "Offset/ps");
    for (size_t i = 0; i < channels.size(); ++i) {
        const std::string name = rowName(recording, static_cast<int64_t>(i + 1));
        if (!hasLevels) {
            row(text, fmt::format("{}", i + 1), name);
            continue;
        }
        const object &channel = channels[i].as_object();
        const value *trigger = channel.if_contains("TrigMode");
        const bool isEdge = trigger && trigger->as_string() == "Edge";
        line(i + 1, name, numberOf(channel, "ChanEna") != 0 ? "yes" : "no", trigger ? textOf(*trigger) : "",
             fmt::format("{:.10g}", numberOf(channel, isEdge ? "TrigLvl" : "DiscrLvl")),
             fmt::format("{:.10g}", numberOf(channel, "ChanOffs")));
    }
}

void addRun(fmt::memory_buffer &text, const object &run)
{
    heading(text, "Last run");
    row(text, "Acquisition time", timeText(numberOf(run, "AcqTime") * 1e9));
    row(text, "Stop reason", textOf(run.at("StopReason")));
    row(text, "Stopped after", fmt::format("{:.10g} ms", numberOf(run, "StopAfter")));
    row(text, "Warnings", fmt::format("{:#x}", static_cast<int64_t>(numberOf(run, "WarningsFlag"))));
    row(text, "Records", textOf(run.at("NumRecs")));
}

void addTags(fmt::memory_buffer &text, const object &header)
{
    heading(text, "Header tags");
    auto out = std::back_inserter(text);
    for (const value &item : header.at("tags").as_array()) {
        const object &tag = item.as_object();
        const auto index = tag.at("idx").to_number<int64_t>();
        const std::string name = textOf(tag.at("name")) + (index >= 0 ? fmt::format("({})", index) : "");
        const value *content = tag.if_contains("value");
        fmt::format_to(out, "  {:<34} {:<12} {}\n", name, textOf(tag.at("type")),
                       content && !content->is_null() ? textOf(*content) : "");
    }
}

// Of the whole file; `found` is empty if it wasn't asked for.
void addCounts(fmt::memory_buffer &text, const Recording &recording, const object &found)
{
    if (found.empty()) return;
    heading(text, "Counts");
    const double seconds = numberOf(found, "durationMs") * 1e-3;
    row(text, "Duration", seconds > 0 ? fmt::format("{:.12g} s", seconds) : "");
    auto count = [&](const std::string &name, const value &events) {
        const auto number = events.to_number<double>();
        row(text, name,
            seconds > 0 ? fmt::format("{:.0f}, {}", number, countRateText(number / seconds))
                        : fmt::format("{:.0f}", number));
    };
    const object &events = found.at("events").as_object();
    if (recording.MeasMode == 2) count("Sync", events.at("sync")); // T3 has no records of it
    const auto &inputs = events.at("inputs").as_array();
    for (size_t i = 0; i < inputs.size(); ++i)
        count(rowName(recording, static_cast<int64_t>(i + 1)), inputs[i]);
    count("Markers", events.at("markers"));
    row(text, "Steps back", textOf(found.at("stepsBack")));
}

std::string table(const Recording &recording, const object &found)
{
    fmt::memory_buffer text;
    addFile(text, recording);
    addDevice(text, recording);
    addChannels(text, recording);
    addCounts(text, recording, found);
    addRun(text, recording.Description);
    addTags(text, recording.Header);
    return fmt::to_string(text);
}

object asJson(const Recording &recording, const object &found)
{
    value counts, period;
    if (!found.empty())
        counts = {{"durationMs", found.at("durationMs")},
                  {"events", found.at("events")},
                  {"stepsBack", found.at("stepsBack")}};
    if (recording.UsedPeriodPs > 0)
        period = {{"usedPs", recording.UsedPeriodPs}, {"ofFilePs", recording.MadePeriodPs}};
    return {{"schema", "tessel.info/1"},
            {"file", jsonName(recording.Path)},
            {"recordsInFile", recording.NumRecords},
            {"recording", endingText(recording.Ending)},
            {"losses", lossesNow().Losses.at("recording")},
            {"syncPeriod", period},
            {"resolution", {{"usedPs", recording.UsedResolutionPs}, {"ofFilePs", recording.ResolutionPs}}},
            {"counts", counts},
            {"ofInstrument", isOfInstrument(recording)},
            {"device", recording.Config},
            {"run", recording.Description},
            {"header", recording.Header}};
}

int runInfo(const InfoOptions &options, const HostOptions &host)
{
    const Session session(host);
    checkOutputs({options.File, host.IniPath}, outputsOf(options.Result), options.Result.Force);
    const Recording recording = openRecording(options.File);
    const object found = options.Counts ? fileReport(options.File, options.File) : object();
    writeResult(options.Result.File,
                options.Result.Json ? jsonText(asJson(recording, found)) : table(recording, found));
    return 0;
}

constexpr const char *infoFooter =
    R"(JSON: schema (tessel.info/1), file, recordsInFile,
  recording (closed, not closed, cut short), and
  losses  {verdict (clean, lossy, invalid), losses {place: ...}} of the recording
  syncPeriod    null, or in T3 {usedPs, ofFilePs}: a replay goes by whole picoseconds
  resolution    {usedPs, ofFilePs} of a T3 dtime or a T2 time tag; a replay rounds it too
  counts        null, or with --counts {durationMs, events {sync, inputs, ...}, stepsBack}
  ofInstrument  false: made by a program, so levels and offsets of the device mean nothing
  device  state of the opened device
  run     the last run
  header  magic, version, sizes, and tags: all of them, in the order of the file

Examples:
  tessel info decay.tgx
  tessel info decay.tgx --json | jq '.device.Resolution')";

} // namespace

Command addInfo(CLI::App &program)
{
    const auto options = std::make_shared<InfoOptions>();
    CLI::App *command =
        program.add_subcommand("info", "Show what a recording holds: device, last run, header tags");
    addRecordingArgument(*command, options->File);
    addOutputOptions(*command, options->Result, "a table");
    command->add_flag("--counts", options->Counts,
                      "Also count events and duration, for which the whole file is read");
    command->footer(infoFooter);
    return {command, [options](const HostOptions &host) { return runInfo(*options, host); }};
}

} // namespace Tessel::Cli
