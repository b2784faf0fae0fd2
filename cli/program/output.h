// Results as text: CSV with a commented header, or one JSON object; to standard output or into a file.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Tessel::Cli {

// One column of a table. The values are the caller's.
struct Column
{
    std::string Name;
    std::variant<std::span<const uint32_t>, std::span<const uint64_t>, std::span<const double>> Values;
};

// `notes` become comment lines; all columns have the same length. What is no number is "nan".
std::string csvText(const std::vector<std::string> &notes, std::span<const Column> columns);

// Without a fraction an integer, so that 25 is written as 25; what is infinite or no number is null.
boost::json::value jsonNumber(double value);

// What is infinite or no number is null.
boost::json::array jsonArray(const Column &column);

// With a line feed at its end; `indentedJson` with a line for each key and each item that isn't plain.
std::string jsonText(const boost::json::object &object);
std::string indentedJson(const boost::json::object &object);

// To the file, whole or not at all, or to standard output ("" or "-"). Throws Failure.
void writeResult(const std::string &target, std::string_view text);

} // namespace Tessel::Cli
