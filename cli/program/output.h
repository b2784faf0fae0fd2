// Results as text: CSV with a commented header, or one JSON object; to standard output or into a file.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <cstdio>
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

// With a line feed at its end.
std::string jsonText(const boost::json::object &object);

// `target` empty or "-": standard output. A file is written under another name first and renamed, so that it is
// either complete or not there. Throws Failure.
void writeResult(const std::string &target, std::string_view text);

// A result that is written piece by piece; otherwise as writeResult. Without `complete` a file isn't there in
// the end.
struct ResultStream
{
    explicit ResultStream(const std::string &target);
    ~ResultStream();
    ResultStream(const ResultStream &) = delete;
    ResultStream &operator=(const ResultStream &) = delete;

    std::string Target, Unfinished; // Unfinished empty: nothing to rename
    std::FILE *File = nullptr;      // null: standard output
};

void write(ResultStream &stream, std::string_view piece);
void complete(ResultStream &stream);

} // namespace Tessel::Cli
