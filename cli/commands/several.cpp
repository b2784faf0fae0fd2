#include "commands/several.h"

#include "commands/shown_run.h"
#include "jobs/file_mark.h"
#include "jobs/result_sum.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace Tessel::Cli {

namespace {

// A file that has gone meanwhile is no reason to lose the result.
void addMark(boost::json::object &entry, const std::string &path)
{
    try {
        const FileMark mark = markOf(path);
        entry["bytes"] = mark.Bytes;
        entry["crc32"] = mark.Crc32;
    } catch (const Failure &gone) {
        warn(gone.what());
    }
}

} // namespace

boost::json::object fileEntry(const Measured &measured, const Measurement &measurement)
{
    const Recording &recording = measured.From;
    boost::json::object entry = {{"file", nullptr},
                                 {"bytes", nullptr},
                                 {"crc32", nullptr},
                                 {"device", recording.Id},
                                 {"seconds", nullptr},
                                 {"run", outcomeJson(recording, measured.Run)},
                                 {"notes", boost::json::array(measured.Notes.begin(), measured.Notes.end())}};
    if (!recording.isLive()) {
        entry["file"] = jsonName(recording.Path);
        addMark(entry, recording.Path);
    }
    if (const double seconds = secondsOf(measured); seconds > 0) entry["seconds"] = seconds;
    entry["rates"] = boost::json::object();
    if (!measurement.FileKeys) return entry;
    for (auto &member : measurement.FileKeys(measured)) entry[member.key()] = member.value();
    return entry;
}

boost::json::object ratesOfRows(const Recording &recording, double seconds, const RowCounts &countsOf)
{
    boost::json::object rates;
    for (int64_t row = 0; row < recording.NumRows && seconds > 0; ++row)
        rates[columnName(recording, row)] = static_cast<double>(total(countsOf(row))) / seconds;
    return rates;
}

double secondsOf(const Measured &measured)
{
    const auto &run = measured.From.isLive() ? runDescription() : measured.From.Description;
    return run.at("StopAfter").to_number<double>() * 1e-3;
}

std::vector<uint32_t> countsIn(const boost::json::value &counts, uint64_t count)
{
    const std::vector<uint64_t> numbers = numbersIn(counts);
    if (numbers.size() != count) throw Failure(Exit::Failed, "the result has another number of counts");
    if (std::ranges::any_of(numbers, [](uint64_t number) { return number > UINT32_MAX; }))
        throw Failure(Exit::Failed, "the counts of a bin add up to more than 4294967295");
    return {numbers.begin(), numbers.end()};
}

std::vector<uint64_t> numbersIn(const boost::json::value &numbers)
{
    std::vector<uint64_t> whole;
    for (const auto &number : numbers.as_array()) whole.push_back(number.to_number<uint64_t>());
    return whole;
}

namespace {

// The stages, with the channels that each makes.
PlacedChain chainIn(const boost::json::object &result)
{
    PlacedChain chain;
    const boost::json::value *given = result.if_contains("chain");
    if (!given) return chain;
    const boost::json::object wrapped = {{"chain", *given}};
    for (ChainStage &stage : parseChainJson(boost::json::serialize(wrapped))) {
        const boost::json::array &makes = given->at(chain.size()).at("makes").as_array();
        chain.push_back({.Stage = std::move(stage), .NumChannels = static_cast<int64_t>(makes.size())});
        if (!makes.empty()) chain.back().FirstChannel = makes.front().to_number<int64_t>();
    }
    return chain;
}

// What the writers of a result need to know of it.
Measured measuredOf(const boost::json::object &sum)
{
    Measured measured;
    measured.Files = sum.at("files").as_array();
    measured.Job = sum.at("job").as_object();
    measured.Chain = chainIn(sum);
    for (const auto &note : sum.at("notes").as_array()) measured.Notes.emplace_back(note.as_string());
    Recording &recording = measured.From;
    const auto &file = sum.at("file");
    recording.Path =
        file.is_string() ? std::string(file.as_string()) : fmt::format("{} recordings", measured.Files.size());
    if (sum.at("device").is_string()) recording.Id = sum.at("device").as_string();
    const auto &mode = sum.at("mode").as_string();
    recording.MeasMode = mode == "T2" ? 2 : mode == "T3" ? 3 : 0;
    for (const auto &row : sum.at("rows").as_array())
        recording.Made.push_back({.Name = std::string(row.at("name").as_string()),
                                  .Column = std::string(row.at("column").as_string())});
    recording.NumRows = static_cast<int64_t>(recording.Made.size());
    return measured;
}

} // namespace

int writeSum(const MeasureOptions &options, const Measurement &measurement, boost::json::object sum, int code)
{
    sayOfAll(sum);
    measurement.Load(sum);
    Measured measured = measuredOf(sum);
    measured.SumRun = sum.at("run").as_object();
    if (measurement.SumNotes)
        for (std::string &text : measurement.SumNotes(measured.Files)) {
            warn(text);
            measured.Notes.push_back(std::move(text));
        }
    return writeMeasured(options, measurement, measured, [code] { return code; });
}

namespace {

int worse(int one, int other)
{
    return std::max(one, other); // 130 > 4 > 0
}

void checkSeveral(const MeasureOptions &options, const Measurement &measurement)
{
    if (options.Command) checkSummable(options.Command->get_name());
    if (!measurement.Load) throw Failure(Exit::Usage, "only one FILE");
    if (options.Updates.JsonLines || options.Updates.Live)
        throw Failure(Exit::Usage, "--live and --json-lines: one recording at a time");
    for (const std::string &file : options.Files) checkFile(file);
}

// Puts the name of the file in front of what goes wrong.
template <class Step>
auto onFile(const std::string &file, Step step)
{
    const Subject subject(visibleText(file));
    try {
        return step();
    } catch (const Failure &failure) {
        const std::string name = visibleText(file) + ": ", what = failure.what();
        throw Failure(failure.Code, what.starts_with(name) ? what : name + what);
    }
}

} // namespace

int measureSeveral(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement)
{
    checkSeveral(options, measurement);
    boost::json::object sum;
    int code = 0;
    MeasureOptions one = options;
    for (const std::string &file : options.Files) {
        one.File = file;
        onFile(file, [&] {
            const Measured measured = measureSource(one, host, measurement);
            boost::json::object result = measurement.Json(measured);
            if (sum.empty())
                sum = std::move(result);
            else
                addResult(sum, result, file);
            code = worse(code, reportRun(measured));
            closeDevice(0); // its id is that of the next file of the same name
            return 0;
        });
        if (code > 128) break; // stopped by a signal
    }
    return writeSum(options, measurement, std::move(sum), code);
}

} // namespace Tessel::Cli
