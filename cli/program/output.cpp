// Writers of results. Pure, up to writeResult.
#include "program/output.h"

#include "program/console.h"
#include "program/exit_codes.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <unistd.h>
#include <utility>

namespace Tessel::Cli {

namespace {

size_t lengthOf(const Column &column)
{
    return std::visit([](auto values) { return values.size(); }, column.Values);
}

bool isStandardOutput(const std::string &target)
{
    return target.empty() || target == "-";
}

void appendNumber(fmt::memory_buffer &text, auto value)
{
    if (std::isnan(static_cast<double>(value))) // without the sign that it may have
        text.append(std::string_view("nan"));
    else
        fmt::format_to(std::back_inserter(text), "{}", value);
}

[[noreturn]] void fail(const ResultStream &stream, const std::string &why)
{
    throw Failure(Exit::Failed, fmt::format("{}: {}", visibleText(stream.Target), why));
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

ResultStream::ResultStream(const std::string &target) : Target(target)
{
    if (isStandardOutput(target)) return;
    std::error_code problem;
    const auto status = std::filesystem::status(target, problem);
    const bool replaced = !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
    const std::string name = replaced ? fmt::format("{}.{}.part", target, getpid()) : target; // a pipe stays
    File = std::fopen(name.c_str(), "wb");
    if (!File) fail(*this, std::strerror(errno));
    if (replaced) Unfinished = name;
}

ResultStream::~ResultStream()
{
    if (File) std::fclose(File);
    if (!Unfinished.empty()) std::remove(Unfinished.c_str());
}

void write(ResultStream &stream, std::string_view piece)
{
    if (isStandardOutput(stream.Target)) return writeStandardOutput(piece);
    if (std::fwrite(piece.data(), 1, piece.size(), stream.File) != piece.size())
        fail(stream, std::strerror(errno));
}

void complete(ResultStream &stream)
{
    if (stream.File && std::fclose(std::exchange(stream.File, nullptr)) != 0)
        fail(stream, std::strerror(errno));
    if (stream.Unfinished.empty()) return;
    std::error_code problem;
    std::filesystem::rename(stream.Unfinished, stream.Target, problem);
    if (problem) fail(stream, problem.message());
    stream.Unfinished.clear();
}

void writeResult(const std::string &target, std::string_view text)
{
    ResultStream stream(target);
    write(stream, text);
    complete(stream);
}

} // namespace Tessel::Cli
