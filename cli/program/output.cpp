// Writers of results. Pure, up to writeResult.
#include "program/output.h"

#include "program/output_file.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace Tessel::Cli {

namespace {

size_t lengthOf(const Column &column)
{
    return std::visit([](auto values) { return values.size(); }, column.Values);
}

void appendNumber(fmt::memory_buffer &text, auto value)
{
    if (std::isnan(static_cast<double>(value))) // without the sign that it may have
        text.append(std::string_view("nan"));
    else
        fmt::format_to(std::back_inserter(text), "{}", value);
}

} // namespace

std::string csvText(const std::vector<std::string> &notes, std::span<const Column> columns)
{
    fmt::memory_buffer text;
    auto out = std::back_inserter(text);
    for (const std::string &note : notes) fmt::format_to(out, "# {}\n", note);
    for (size_t i = 0; i < columns.size(); ++i) fmt::format_to(out, "{}{}", i ? "," : "", columns[i].Name);
    text.push_back('\n');
    const size_t rows = columns.empty() ? 0 : lengthOf(columns.front());
    for (size_t row = 0; row < rows; ++row) {
        for (size_t i = 0; i < columns.size(); ++i) {
            if (i) text.push_back(',');
            std::visit([&](auto values) { appendNumber(text, values[row]); }, columns[i].Values);
        }
        text.push_back('\n');
    }
    return fmt::to_string(text);
}

boost::json::value jsonNumber(double value)
{
    if (!std::isfinite(value)) return nullptr;
    const bool isWhole = value == std::floor(value) && std::abs(value) < 0x1p53;
    return isWhole ? boost::json::value(static_cast<int64_t>(value)) : boost::json::value(value);
}

boost::json::array jsonArray(const Column &column)
{
    boost::json::array array;
    array.reserve(lengthOf(column));
    std::visit(
        [&](auto values) {
            for (const auto value : values)
                if (std::isfinite(static_cast<double>(value)))
                    array.emplace_back(value);
                else
                    array.emplace_back(nullptr);
        },
        column.Values);
    return array;
}

std::string jsonText(const boost::json::object &object)
{
    return boost::json::serialize(object) + "\n";
}

namespace {

bool fitsOneLine(const boost::json::value &value)
{
    return !value.is_structured() ||
           (value.is_array() && std::ranges::all_of(value.get_array(), fitsOneLine)) ||
           (value.is_object() && value.get_object().empty());
}

void appendIndented(std::string &text, const boost::json::value &value, size_t depth)
{
    if (fitsOneLine(value)) {
        text += boost::json::serialize(value);
        return;
    }
    const std::string line = "\n" + std::string(2 * depth + 2, ' ');
    const char *separator = "";
    text += value.is_object() ? "{" : "[";
    if (const auto *object = value.if_object())
        for (const auto &member : *object) {
            text += std::exchange(separator, ",") + line +
                    boost::json::serialize(boost::json::string(member.key())) + ": ";
            appendIndented(text, member.value(), depth + 1);
        }
    else
        for (const auto &item : value.get_array()) {
            text += std::exchange(separator, ",") + line;
            appendIndented(text, item, depth + 1);
        }
    text += "\n" + std::string(2 * depth, ' ') + (value.is_object() ? "}" : "]");
}

} // namespace

std::string indentedJson(const boost::json::object &object)
{
    std::string text;
    appendIndented(text, object, 0);
    return text + "\n";
}

void writeResult(const std::string &target, std::string_view text)
{
    OutputFile file(target);
    write(file, text);
    complete(file);
}

} // namespace Tessel::Cli
