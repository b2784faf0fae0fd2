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
};

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
    row(text, "Resolution", timeText(numberOf(config, "Resolution")));
    row(text, "Histogram bins", textOf(config.at("NumBins")));
    if (isT3 && numberOf(recording.Description, "AveSyncRate") > 0)
        row(text, "Sync rate", rateText(numberOf(recording.Description, "AveSyncRate")));
    row(text, "Sync divider", textOf(config.at("SyncDiv")));
    row(text, "Comment", textOf(config.at("Comment")));
    row(text, "Input channels", textOf(config.at("NumChans")));
}

void addChannels(fmt::memory_buffer &text, const Recording &recording)
{
    const auto &channels = recording.Config.at("ChansCfg").as_array();
    if (channels.empty()) return;
    heading(text, "Channels");
    auto out = std::back_inserter(text);
    fmt::format_to(out, "  {:<5} {:<24} {:<8} {:>10} {:>10} {:>12}\n", "Row", "Name", "Enabled", "Trigger",
                   "Level/mV", "Offset/ps");
    for (size_t i = 0; i < channels.size(); ++i) {
        const object &channel = channels[i].as_object();
        const value *trigger = channel.if_contains("TrigMode");
        const bool isEdge = trigger && trigger->as_string() == "Edge";
        fmt::format_to(out, "  {:<5} {:<24} {:<8} {:>10} {:>10} {:>12}\n", i + 1,
                       rowName(recording, static_cast<int64_t>(i + 1)),
                       numberOf(channel, "ChanEna") != 0 ? "yes" : "no", trigger ? textOf(*trigger) : "",
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

std::string table(const Recording &recording)
{
    fmt::memory_buffer text;
    addFile(text, recording);
    addDevice(text, recording);
    addChannels(text, recording);
    addRun(text, recording.Description);
    addTags(text, recording.Header);
    return fmt::to_string(text);
}

object asJson(const Recording &recording)
{
    return {{"schema", "tessel.info/1"},
            {"file", jsonName(recording.Path)},
            {"recordsInFile", recording.NumRecords},
            {"recording", endingText(recording.Ending)},
            {"losses", lossesNow().Losses.at("recording")},
            {"device", recording.Config},
            {"run", recording.Description},
            {"header", recording.Header}};
}

int runInfo(const InfoOptions &options, const HostOptions &host)
{
    const Session session(host);
    checkOutputs({options.File, host.IniPath}, outputsOf(options.Result), options.Result.Force);
    const Recording recording = openRecording(options.File);
    writeResult(options.Result.File, options.Result.Json ? jsonText(asJson(recording)) : table(recording));
    return 0;
}

constexpr const char *infoFooter =
    R"(JSON: schema (tessel.info/1), file, recordsInFile,
  recording (closed, not closed, cut short), and
  losses  {verdict (clean, lossy, invalid), losses {place: ...}} of the recording
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
    command->footer(infoFooter);
    return {command, [options](const HostOptions &host) { return runInfo(*options, host); }};
}

} // namespace Tessel::Cli
