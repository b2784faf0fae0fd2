#include "config/json_values.h"

#include "log/log.h"
#include "log/text.h"

#include <boost/json/error.hpp>
#include <boost/json/parse.hpp>

namespace Tessel {

namespace {

using boost::json::error;
using boost::json::error_code;
using boost::json::make_error_code;
using boost::json::value;

// The value of the key, or null with a line in the log.
const value *findValue(const JsonObject &from, std::string_view key, std::string_view where)
{
    const value *found = from.Keys ? from.Keys->if_contains(key) : nullptr;
    if (found) return found;
    if (from.Keys)
        logWrn(LogCategory::Device, "JSON: Can't find \"{}\" in {}.", key, where);
    else
        logErr(LogCategory::Device, "JSON: Can't parse \"{}\" to {}: {} in {}", key, from.Expected, from.Reason,
               where);
    return nullptr;
}

void logWrongType(std::string_view key, std::string_view type, const error_code &why, std::string_view where)
{
    logErr(LogCategory::Device, "JSON: Can't parse \"{}\" to {}: {} in {}", key, type, why.message(), where);
}

template <class Result>
std::optional<Result> traced(std::string_view key, Result result)
{
    if (LogLevel.Config) logInf(LogCategory::Progress, "parsed {} to {}", key, result);
    return result;
}

} // namespace

JsonObject parseJsonObject(std::string_view text, value &parsed)
{
    error_code problem;
    parsed = boost::json::parse(text, problem);
    if (problem) return {.Expected = "JSON value", .Reason = problem.message()};
    return objectOf(parsed);
}

JsonObject objectOf(const value &value)
{
    if (const auto *keys = value.if_object()) return {.Keys = keys};
    return {.Expected = "JSON object", .Reason = make_error_code(error::not_object).message()};
}

std::optional<std::string> JSONparseString(const JsonObject &from, std::string_view key, std::string_view where)
{
    const value *found = findValue(from, key, where);
    if (!found) return {};
    const auto *text = found->if_string();
    if (!text) { // "to int", as for a flag: hosts know it so
        logWrongType(key, "int", make_error_code(error::not_string), where);
        return {};
    }
    if (LogLevel.Config) logInf(LogCategory::Progress, "parsed {} to {}", key, cutTo(*text, longestShown));
    return std::string(*text);
}

std::optional<int64_t> JSONparseInt(const JsonObject &from, std::string_view key, std::string_view where)
{
    const value *found = findValue(from, key, where);
    if (!found) return {};
    error_code problem;
    const auto number = found->to_number<int64_t>(problem);
    if (!problem) return traced(key, number);
    logWrongType(key, "int", problem, where);
    return {};
}

std::optional<double> JSONparseDbl(const JsonObject &from, std::string_view key, std::string_view where)
{
    // This line alone leaves out the caller: hosts know it so.
    if (!from.Keys && from.Expected == "JSON object") {
        logErr(LogCategory::Device, "JSON: Can't parse \"{}\" to JSON object: {}", key, from.Reason);
        return {};
    }
    const value *found = findValue(from, key, where);
    if (!found) return {};
    error_code problem;
    const auto number = found->to_number<double>(problem);
    if (!problem) return traced(key, number);
    logWrongType(key, "double", problem, where);
    return {};
}

std::optional<bool> JSONparseBool(const JsonObject &from, std::string_view key, std::string_view where)
{
    const value *found = findValue(from, key, where);
    if (!found) return {};
    if (const bool *flag = found->if_bool()) return traced(key, *flag);
    logWrongType(key, "int", make_error_code(error::not_bool), where);
    return {};
}

const boost::json::array *JSONparseJArray(const JsonObject &from, std::string_view key)
{
    constexpr std::string_view where = "JSONparseJObject";
    const value *found = findValue(from, key, where);
    if (!found) return nullptr;
    if (const auto *elements = found->if_array()) return elements;
    logWrongType(key, "JSON array", make_error_code(error::not_array), where);
    return nullptr;
}

} // namespace Tessel
