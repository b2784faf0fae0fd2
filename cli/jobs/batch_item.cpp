#include "jobs/batch_item.h"

#include "jobs/file_mark.h"
#include "jobs/result_sum.h"
#include "program/exact_json.h"
#include "program/output.h"
#include "program/visible_text.h"

#include <boost/json/serialize.hpp>
#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;

json::object jobOnFiles(Job job)
{
    job.Source = sourceOnFiles(job.Source);
    return jobJson(job);
}

void takeFrom(BatchItem &item, const json::object &result)
{
    const json::value &file = result.at("files").at(0);
    item.Seconds.reset();
    if (!file.at("seconds").is_null()) item.Seconds = file.at("seconds").to_number<double>();
    item.Rates.clear();
    for (const auto &rate : file.at("rates").as_object())
        item.Rates.emplace_back(std::string(rate.key()), rate.value().to_number<double>());
    item.Run = result.at("run").as_object();
}

// Of the run and of its recording, in all places; nothing: somewhere nobody knows.
std::optional<uint64_t> lostIn(const json::object &run)
{
    uint64_t total = 0;
    const json::value &recording = run.at("recordingLosses");
    for (const json::value *losses :
         {&run.at("losses"), recording.is_null() ? nullptr : &recording.at("losses")}) {
        if (!losses || !losses->is_object()) continue;
        for (const auto &place : losses->get_object()) {
            const json::value &lost = place.value().at("lost");
            if (lost.is_null()) return {};
            total += lost.to_number<uint64_t>();
        }
    }
    return total;
}

std::string cell(std::string_view text)
{
    const std::string shown = visibleText(text);
    if (shown.find_first_of(",\"") == shown.npos) return shown;
    std::string quoted = "\"";
    for (const char letter : shown) quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return quoted + "\"";
}

std::vector<std::string> rateNames(const std::vector<BatchItem> &items)
{
    std::vector<std::string> names;
    for (const BatchItem &item : items)
        for (const auto &[name, rate] : item.Rates)
            if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    return names;
}

std::string line(const BatchItem &item, const std::vector<std::string> &names)
{
    const bool has = !item.Run.empty();
    const auto word = [&](const char *key) {
        return has ? std::string_view(item.Run.at(key).as_string()) : std::string_view();
    };
    const auto lost = has ? lostIn(item.Run) : std::nullopt;
    std::string text = fmt::format(
        "{},{},{},{},{},{},{},{}", cell(item.File), stateText(item.State), word("verdict"), word("recording"),
        has ? json::serialize(item.Run.at("recordsRead")) : "",
        item.Seconds ? fmt::format("{}", *item.Seconds) : "nan", lost ? fmt::format("{}", *lost) : "nan",
        has ? json::serialize(item.Run.at("stepsBack")) : "");
    for (const std::string &name : names) {
        const auto rate = std::ranges::find(item.Rates, name, &std::pair<std::string, double>::first);
        text += rate == item.Rates.end() ? ",nan" : fmt::format(",{:.6g}", rate->second);
    }
    return text + fmt::format(",{},{}\n", has ? cell(item.Result) : "", cell(item.Problem));
}

} // namespace

std::string_view stateText(BatchState state)
{
    switch (state) {
    case BatchState::Waiting: break;
    case BatchState::Done: return "done";
    case BatchState::Kept: return "kept";
    case BatchState::Failed: return "failed";
    }
    return "waiting";
}

std::string resultPath(const std::string &folder, const std::string &file, const Job &job)
{
    constexpr size_t longestStem = 200; // of 255 bytes that a name may have
    const FileMark mark = markOf(file);
    const json::array key = {"tessel " TESSEL_VERSION, jobOnFiles(job), mark.Bytes, mark.Crc32, mark.ChangedNs};
    const boost::uuids::name_generator_sha1 generate(boost::uuids::ns::url());
    const std::string name = boost::uuids::to_string(generate(json::serialize(key)));
    const std::string stem = std::filesystem::path(file).stem().string().substr(0, longestStem);
    return (std::filesystem::path(folder) / fmt::format("{}.{}.json", stem, name)).string();
}

bool takeResult(BatchItem &item, std::string_view text, const Job &job)
{
    try {
        const json::value value = parseJsonUpTo(text, "files"); // the counts come after it
        if (!text.ends_with("}\n")) return false;
        const json::object &result = value.as_object();
        if (measurementOf(result, item.Result) != job.Measurement) return false;
        takeFrom(item, result);
        return true;
    } catch (const std::exception &) { // whatever it is, it isn't what the program has written
        return false;
    }
}

std::string batchCsv(const std::vector<BatchItem> &items)
{
    const std::vector<std::string> names = rateNames(items);
    std::string text = "file,state,verdict,recording,records,seconds,lost,steps_back";
    for (const std::string &name : names) text += "," + name + "_cps";
    text += ",result,problem\n";
    for (const BatchItem &item : items) text += line(item, names);
    return text;
}

json::object batchJson(const std::vector<BatchItem> &items, const Job &job)
{
    json::array files;
    for (const BatchItem &item : items) {
        json::object file = {{"file", jsonName(item.File)},
                             {"state", stateText(item.State)},
                             {"result", nullptr},
                             {"problem", nullptr},
                             {"seconds", nullptr},
                             {"rates", json::object()},
                             {"run", nullptr}};
        if (!item.Problem.empty()) file["problem"] = jsonName(item.Problem);
        if (item.Seconds) file["seconds"] = *item.Seconds;
        for (const auto &[name, rate] : item.Rates) file["rates"].as_object()[name] = jsonNumber(rate);
        if (!item.Run.empty()) {
            file["run"] = item.Run;
            file["result"] = jsonName(item.Result);
        }
        files.push_back(std::move(file));
    }
    return {{"schema", "tessel.batch/1"},
            {"program", "tessel " TESSEL_VERSION},
            {"job", jobOnFiles(job)},
            {"files", std::move(files)}};
}

} // namespace Tessel::Cli
