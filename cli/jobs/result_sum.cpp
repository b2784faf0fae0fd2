// Each key of a result is one of the kinds of SumForm, or of the head that all results share.
#include "jobs/result_sum.h"

#include "jobs/job.h"
#include "jobs/json_difference.h"
#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;
using namespace std::string_view_literals;
using Keys = std::vector<std::string_view>;

// What isn't named must be equal.
struct SumForm
{
    std::string_view Measurement;
    Keys Sums;     // numbers, added up one by one
    Keys Computed; // of the others, by the measurement
    std::string_view WhyNot = "";
};

const SumForm sumForms[] = {
    {"histogram", {"channels"}, {"syncPeriodPs"}},
    {"g2", {"pairs", "n1", "n2", "measuredPs", "channelSpansPs", "selfPairs"}, {"values", "sigma"}},
    {"fcs",
     {"pairs", "n1", "n2", "measuredPs", "laterEvents", "earlierEvents"},
     {"auto1", "cross", "auto2", "sigma"}},
    {"hist2d", {"counts", "total"}, {}},
    {"trace", {}, {}, "its bins are times of one recording"},
    {"fold", {}, {}, "the phases of two recordings have no common origin"}};

constexpr std::array headKeys = {"program"sv, "job"sv,   "file"sv,  "device"sv,   "chain"sv, "rows"sv,
                                 "run"sv,     "notes"sv, "files"sv, "recorded"sv, "live"sv};

bool isIn(std::string_view key, const auto &keys)
{
    return std::ranges::find(keys, key) != std::ranges::end(keys);
}

const SumForm &formOf(std::string_view measurement)
{
    return *std::ranges::find(sumForms, measurement, &SumForm::Measurement);
}

struct Adding
{
    std::string Name;

    [[noreturn]] void fail(std::string_view what) const
    {
        throw Failure(Exit::Failed, fmt::format("{}: can't be added: {}", visibleText(Name), what));
    }
};

bool isCount(const json::value &value)
{
    return value.is_uint64() || (value.is_int64() && value.get_int64() >= 0);
}

// Counts, arrays of them and objects that hold them; names in an object must be equal.
void addCounts(json::value &sum, const json::value &next, const Adding &adding, std::string_view key)
{
    if (isCount(sum) && isCount(next)) {
        uint64_t total = 0;
        if (__builtin_add_overflow(sum.to_number<uint64_t>(), next.to_number<uint64_t>(), &total))
            adding.fail(fmt::format("{}: more than 64 bits", key));
        sum = total;
    } else if (sum.is_array() && next.is_array() && sum.get_array().size() == next.get_array().size()) {
        for (size_t i = 0; i < sum.get_array().size(); ++i)
            addCounts(sum.get_array()[i], next.get_array()[i], adding, key);
    } else if (sum.is_object() && next.is_object() && sum.get_object().size() == next.get_object().size()) {
        for (auto &&member : sum.get_object()) {
            const json::value *other = next.get_object().if_contains(member.key());
            if (!other) adding.fail(fmt::format("{}.{} isn't there", key, std::string_view(member.key())));
            if (member.key() == "row" || member.key() == "name") continue;
            addCounts(member.value(), *other, adding, key);
        }
    } else {
        adding.fail(fmt::format("{}: another number of them", key));
    }
}

const json::object &objectOf(const json::object &result, std::string_view key, const Adding &adding)
{
    const json::value *value = result.if_contains(key);
    if (!value || !value->is_object())
        adding.fail(fmt::format("it has no {}: it is none of a measurement with --json", key));
    return value->get_object();
}

json::array &arrayOf(json::object &result, std::string_view key, const Adding &adding)
{
    json::value *value = result.if_contains(key);
    if (!value || !value->is_array()) adding.fail(fmt::format("it has no {}", key));
    return value->get_array();
}

json::object comparedJob(const json::object &result, const Adding &adding)
{
    json::object job = objectOf(result, "job", adding);
    const json::value *source = job.if_contains("source");
    job["source"] = sourceOnFiles(source && source->is_object() ? source->get_object() : json::object());
    return job;
}

std::string hintOn(std::string_view key, const json::object &job)
{
    const json::value *parameters = job.if_contains("parameters");
    const bool isOpen = parameters && parameters->is_object() && !parameters->get_object().contains("max-lag");
    if (job.at("measurement") == "fcs" && isOpen && (key == "points" || key == "lagPs" || key == "edgesPs"))
        return " (without --max-lag, the longest lag is a tenth of each recording)";
    return "";
}

void checkEqual(const json::object &sum, const json::object &next, const SumForm &form, const Adding &adding)
{
    const json::object job = comparedJob(sum, adding);
    const std::string jobs = firstDifference(job, comparedJob(next, adding));
    if (!jobs.empty()) adding.fail("it is of another job: " + jobs.substr(1));
    for (const auto &member : sum) {
        const std::string_view key = member.key();
        if (isIn(key, headKeys) || isIn(key, form.Sums) || isIn(key, form.Computed)) continue;
        const json::value *other = next.if_contains(key);
        const std::string what = other ? firstDifference(member.value(), *other) : std::string(" isn't there");
        if (!what.empty()) adding.fail(fmt::format("{}{}{}", key, what, hintOn(key, job)));
    }
}

} // namespace

void checkSummable(std::string_view measurement)
{
    const std::string_view why = formOf(measurement).WhyNot;
    if (!why.empty())
        throw Failure(Exit::Usage,
                      fmt::format("the {} of several recordings isn't defined: {}", measurement, why));
}

std::string measurementOf(const json::object &result, const std::string &name)
{
    const json::value *job = result.if_contains("job");
    const json::value *measurement =
        job && job->is_object() ? job->get_object().if_contains("measurement") : nullptr;
    const std::string found =
        measurement && measurement->is_string() ? std::string(measurement->get_string()) : std::string();
    const json::value *schema = result.if_contains("schema");
    if (std::ranges::find(sumForms, found, &SumForm::Measurement) == std::end(sumForms) || !schema ||
        *schema != json::value("tessel." + found + "/1"))
        throw Failure(Exit::Usage,
                      fmt::format("{}: not the JSON of a measurement, with its job", visibleText(name)));
    return found;
}

void addResult(json::object &sum, const json::object &next, const std::string &name)
{
    const Adding adding{name};
    const SumForm &form = formOf(measurementOf(sum, name));
    json::object other = next;
    checkEqual(sum, next, form, adding);
    for (const std::string_view key : form.Sums) {
        json::value *counts = sum.if_contains(key);
        const json::value *others = other.if_contains(key);
        if (!counts || !others) adding.fail(fmt::format("it has no {}", key));
        addCounts(*counts, *others, adding, key);
    }
    for (json::value &file : arrayOf(other, "files", adding))
        arrayOf(sum, "files", adding).push_back(std::move(file));
}

namespace {

// Of the files' values of a key: the one that all have, else null.
json::value common(const json::array &files, std::string_view key)
{
    const auto valueOf = [&](const json::value &file) { return file.at(key); };
    const json::value first = valueOf(files.front());
    return std::ranges::all_of(files, [&](const auto &file) { return valueOf(file) == first; }) ? first
                                                                                                : nullptr;
}

json::array runsOf(const json::array &files)
{
    json::array runs;
    for (const json::value &file : files) runs.push_back(file.at("run"));
    return runs;
}

// Null if one is.
json::value totalOf(const json::array &runs, std::string_view key)
{
    uint64_t total = 0;
    for (const json::value &run : runs) {
        if (run.at(key).is_null()) return nullptr;
        total += run.at(key).to_number<uint64_t>();
    }
    return total;
}

// The last of these names that a run has; null: none.
json::value worst(const json::array &runs, std::string_view key, std::initializer_list<const char *> names)
{
    json::value found = nullptr;
    for (const char *name : names)
        if (std::ranges::any_of(runs, [&](const auto &run) { return run.at(key) == name; })) found = name;
    return found;
}

json::object runOf(const json::array &files)
{
    const json::array runs = runsOf(files);
    uint64_t largest = 0;
    for (const json::value &run : runs)
        largest = std::max(largest, run.at("largestStepPs").to_number<uint64_t>());
    return {{"recordsRead", totalOf(runs, "recordsRead")},
            {"recordsInFile", totalOf(runs, "recordsInFile")},
            {"recording", worst(runs, "recording", {"closed", "not closed", "cut short"})},
            {"complete", std::ranges::all_of(runs, [](const auto &run) { return run.at("complete") == true; })},
            {"stopReason", common(runs, "stopReason")},
            {"verdict", worst(runs, "verdict", {"clean", "lossy", "invalid"})},
            {"losses", nullptr}, // they are of each file
            {"stepsBack", totalOf(runs, "stepsBack")},
            {"largestStepPs", largest},
            {"unsorted", totalOf(runs, "unsorted")},
            {"recordingLosses", nullptr}};
}

// What is noted of all stands once, else the file in front of it.
json::array notesOf(const json::array &files)
{
    const auto has = [](const json::value &file, const json::value &note) {
        const json::array &notes = file.at("notes").as_array();
        return std::ranges::find(notes, note) != notes.end();
    };
    json::array notes;
    for (const json::value &file : files)
        for (const json::value &note : file.at("notes").as_array()) {
            const bool isOfAll =
                std::ranges::all_of(files, [&](const auto &other) { return has(other, note); });
            if (isOfAll && &file != &files.front()) continue;
            const json::value &name = file.at("file").is_null() ? file.at("device") : file.at("file");
            notes.push_back(isOfAll ? note
                                    : json::value(fmt::format("{}: {}", std::string_view(name.as_string()),
                                                              std::string_view(note.as_string()))));
        }
    return notes;
}

// The rates of a countrate stage are the last of one recording.
void removeRates(json::object &sum)
{
    json::value *chain = sum.if_contains("chain");
    if (!chain || sum.at("files").as_array().size() == 1) return;
    for (json::value &stage : chain->as_array()) stage.as_object().erase("rates");
}

} // namespace

void sayOfAll(json::object &sum)
{
    const json::array files = sum.at("files").as_array(); // `sum` moves what it holds when it grows
    sum["program"] = "tessel " TESSEL_VERSION;
    sum["file"] = common(files, "file");
    sum["device"] = common(files, "device");
    sum["notes"] = notesOf(files);
    sum["run"] = files.size() == 1 ? files.front().at("run") : json::value(runOf(files));
    for (const char *key : {"recorded", "live"}) sum.erase(key);
    removeRates(sum);
}

bool isCleanAndWhole(const json::object &run)
{
    const json::value &late = run.at("unsorted").is_null() ? run.at("stepsBack") : run.at("unsorted");
    return run.at("complete") == true && run.at("verdict") == "clean" && late.to_number<uint64_t>() == 0;
}

} // namespace Tessel::Cli
