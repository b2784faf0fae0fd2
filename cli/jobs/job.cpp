// Reader and writer of job files. Pure.
#include "jobs/job.h"

#include "program/exact_json.h"
#include "program/exit_codes.h"
#include "program/nearest.h"
#include "program/visible_text.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;
using namespace std::string_view_literals;

constexpr std::array inJob = {"$schema"sv, "tessel"sv, "source"sv, "chain"sv, "measurement"sv, "parameters"sv};
constexpr std::array inSource = {"from"sv, "to"sv, "sort"sv, "sim"sv, "device"sv, "for"sv, "mode"sv, "set"sv};
constexpr std::array outside = {"help"sv,  "chain"sv,      "record"sv,  "output"sv, "json"sv,
                                "force"sv, "plot"sv,       "title"sv,   "size"sv,   "errors"sv,
                                "live"sv,  "json-lines"sv, "interval"sv};

// Failures of one file.
struct Reader
{
    std::string Name;

    [[noreturn]] void fail(std::string_view what) const
    {
        throw Failure(Exit::Usage, fmt::format("{}: {}", visibleText(Name), what));
    }
    void checkKeys(const json::object &object, std::string_view place,
                   std::span<const std::string_view> known) const
    {
        for (const auto &member : object) {
            const std::string key(member.key());
            if (std::ranges::find(known, key) != known.end()) continue;
            const std::string nearest = nearestName(key, {known.begin(), known.end()});
            fail(fmt::format("unknown key {}{}{}", place, visibleText(key),
                             nearest.empty() ? fmt::format("; there are {}", fmt::join(known, ", "))
                                             : fmt::format("; did you mean {}?", nearest)));
        }
    }
    const json::value &need(const json::object &job, std::string_view key) const
    {
        if (const json::value *value = job.if_contains(key)) return *value;
        fail(fmt::format("the key \"{}\" is missing", key));
    }
    const json::object &objectIn(const json::object &job, std::string_view key) const
    {
        static const json::object none;
        const json::value *value = job.if_contains(key);
        if (!value) return none;
        if (!value->is_object()) fail(fmt::format("{}: an object is expected", key));
        return value->get_object();
    }
};

void checkFormat(const Reader &reader, const json::object &job)
{
    const json::value &format = reader.need(job, "tessel");
    if (format != json::value(jobFormat))
        reader.fail(
            fmt::format("tessel: the format is {}; this program reads {}", json::serialize(format), jobFormat));
}

std::string measurementOf(const Reader &reader, const json::object &job, std::span<const std::string> known)
{
    const json::value &value = reader.need(job, "measurement");
    const std::string name = value.is_string() ? std::string(value.get_string()) : json::serialize(value);
    if (value.is_string() && std::ranges::find(known, name) != known.end()) return name;
    const std::string nearest = nearestName(name, {known.begin(), known.end()});
    reader.fail(fmt::format("measurement: {} is none of {}{}", visibleText(name), fmt::join(known, ", "),
                            nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest)));
}

std::vector<ChainStage> chainIn(const Reader &reader, const json::object &job)
{
    const json::value *chain = job.if_contains("chain");
    if (!chain) return {};
    try {
        return chainOf(*chain);
    } catch (const ChainError &error) {
        reader.fail(fmt::format("chain: {}", error.what()));
    }
}

} // namespace

std::span<const std::string_view> sourceKeys()
{
    return inSource;
}

bool isOfInstrument(std::string_view sourceKey)
{
    return sourceKey != "from" && sourceKey != "to" && sourceKey != "sort";
}

bool isOutside(std::string_view option)
{
    return std::ranges::find(outside, option) != outside.end();
}

json::object sourceOnFiles(const json::object &source)
{
    json::object kept;
    for (const auto &member : source)
        if (!isOfInstrument(member.key())) kept[member.key()] = member.value();
    return kept;
}

std::vector<ChainStage> chainOf(const json::value &value)
{
    if (value.is_string()) return parseChain(value.get_string());
    if (value.is_array() && value.get_array().empty()) return {};
    return parseChainJson(
        json::serialize(value.is_array() ? json::value(json::object{{"chain", value}}) : value));
}

std::string chainText(const std::vector<ChainStage> &stages)
{
    std::string text;
    for (const ChainStage &stage : stages) text += (text.empty() ? "" : " | ") + stageText(stage);
    return text;
}

Job jobOf(const json::value &value, const std::string &name, std::span<const std::string> measurements)
{
    const Reader reader{name};
    if (!value.is_object()) reader.fail("an object is expected");
    const json::object &job = value.get_object();
    checkFormat(reader, job); // of another format the keys may be others
    reader.checkKeys(job, "", inJob);
    const json::object &source = reader.objectIn(job, "source");
    reader.checkKeys(source, "source.", inSource);
    return {.Source = source,
            .Chain = chainIn(reader, job),
            .Measurement = measurementOf(reader, job, measurements),
            .Parameters = reader.objectIn(job, "parameters")};
}

Job parseJob(std::string_view text, const std::string &name, std::span<const std::string> measurements)
{
    try {
        return jobOf(parseExactJson(text), name, measurements);
    } catch (const JsonError &error) {
        Reader{name}.fail(error.what());
    }
}

json::object jobJson(const Job &job)
{
    json::object written = {{"tessel", jobFormat}};
    if (!job.Source.empty()) written["source"] = job.Source;
    if (!job.Chain.empty()) written["chain"] = chainText(job.Chain);
    written["measurement"] = job.Measurement;
    written["parameters"] = job.Parameters;
    return written;
}

} // namespace Tessel::Cli
