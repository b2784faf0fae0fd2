// Writers of results. Pure, up to writeResult.
#include "output.h"

#include "console.h"
#include "exit_codes.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

size_t lengthOf(const Column &column)
{
    return std::visit([](auto values) { return values.size(); }, column.Values);
}

struct FileCloser
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};

// `name`: what the user calls it.
void writeFile(const std::string &path, const std::string &name, std::string_view text)
{
    const auto fail = [&] {
        throw Failure(Exit::Failed, fmt::format("{}: {}", visibleText(name), std::strerror(errno)));
    };
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
    if (!file) fail();
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) fail();
    if (std::fclose(file.release()) != 0) fail();
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
            std::visit([&](auto values) { fmt::format_to(out, "{}", values[row]); }, columns[i].Values);
        }
        text.push_back('\n');
    }
    return fmt::to_string(text);
}

boost::json::array jsonArray(const Column &column)
{
    boost::json::array array;
    array.reserve(lengthOf(column));
    std::visit(
        [&](auto values) {
            for (const auto value : values) array.emplace_back(value);
        },
        column.Values);
    return array;
}

std::string jsonText(const boost::json::object &object)
{
    return boost::json::serialize(object) + "\n";
}

void writeResult(const std::string &target, std::string_view text)
{
    if (target.empty() || target == "-") return writeStandardOutput(text);
    std::error_code problem;
    const auto status = std::filesystem::status(target, problem);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        return writeFile(target, target, text); // a pipe or a device can't be replaced
    const std::string unfinished = fmt::format("{}.{}.part", target, getpid());
    try {
        writeFile(unfinished, target, text);
    } catch (const Failure &) {
        std::remove(unfinished.c_str());
        throw;
    }
    std::filesystem::rename(unfinished, target, problem);
    if (!problem) return;
    std::remove(unfinished.c_str());
    throw Failure(Exit::Failed, fmt::format("{}: {}", visibleText(target), problem.message()));
}

} // namespace Tessel::Cli
