#include "commands/result_head.h"

#include "jobs/result_sum.h"
#include "program/new_recording.h"
#include "program/output.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <numeric>

namespace Tessel::Cli {

namespace {

// Of an instrument its id.
std::string nameIn(const boost::json::object &file)
{
    return std::string((file.at("file").is_null() ? file.at("device") : file.at("file")).as_string());
}

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

// With what a run on the same light can be repeated.
boost::json::object liveJson(const Measured &measured)
{
    const boost::json::object run = runDescription();
    return {{"acquisitionMs", run.at("AcqTime")},    {"liveTimeMs", run.at("StopAfter")},
            {"meanSyncRate", run.at("AveSyncRate")}, {"startRates", ratesJson(measured.From.Rates)},
            {"rates", ratesJson(measured.Rates)},    {"instrument", measured.From.Config}};
}

boost::json::array rowsJson(const Recording &recording)
{
    boost::json::array rows;
    for (int64_t row = 0; row < recording.NumRows; ++row)
        rows.push_back({{"name", rowName(recording, row)}, {"column", columnName(recording, row)}});
    return rows;
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

boost::json::object recordedJson(const Measured &measured)
{
    const std::string &path = measured.Run.Ended ? measured.Written.Path : measured.Into->Path;
    const uint64_t bytes = measured.Run.Ended ? measured.Written.Bytes : fileBytes(path);
    return {{"file", path}, {"bytes", bytes}, {"closed", measured.Written.IsClosed}};
}

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

} // namespace Tessel::Cli
