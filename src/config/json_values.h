// Values of a JSON object by key. Whatever is wrong with one is logged, and the caller keeps what it has:
// nothing is thrown, and one bad value says nothing of the others.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessel {

// The object that values are asked of. Where there is none, each value that is asked for says why.
struct JsonObject
{
    const boost::json::object *Keys = nullptr; // the caller's
    std::string_view Expected{};               // what it can't be parsed to: "JSON value" or "JSON object"
    std::string Reason{};
};

// Parses the text once, into `value`.
JsonObject parseJsonObject(std::string_view text, boost::json::value &value);
JsonObject objectOf(const boost::json::value &value);

// Bytes of a peer's text in a log line.
inline constexpr size_t longestShown = 4096;

// `where` names the caller in the log.
std::optional<std::string> JSONparseString(const JsonObject &from, std::string_view key,
                                           std::string_view where = "JSONparseString");
std::optional<int64_t> JSONparseInt(const JsonObject &from, std::string_view key,
                                    std::string_view where = "JSONparseInt");
std::optional<double> JSONparseDbl(const JsonObject &from, std::string_view key,
                                   std::string_view where = "JSONparseDbl");
std::optional<bool> JSONparseBool(const JsonObject &from, std::string_view key,
                                  std::string_view where = "JSONparseBool");
// Null: there is none. The log says "JSONparseJObject": hosts know it so.
const boost::json::array *JSONparseJArray(const JsonObject &from, std::string_view key);

} // namespace Tessel
