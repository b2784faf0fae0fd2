// `tessel rerun`: whether a result can be had again.
#include "commands/commands.h"
#include "commands/measuring.h"
#include "jobs/file_mark.h"
#include "jobs/json_difference.h"
#include "jobs/result_file.h"
#include "jobs/result_sum.h"
#include "program/console.h"
#include "program/exact_json.h"
#include "program/exit_codes.h"
#include "program/files.h"
#include "program/output.h"
#include "program/text_file.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace Tessel::Cli {

namespace {

struct RerunOptions
{
    std::string Result;
    std::vector<std::string> Files; // in place of those that the result names
};

std::vector<std::string> filesIn(const boost::json::object &result, const RerunOptions &options)
{
    const boost::json::array &entries = result.at("files").as_array();
    if (!options.Files.empty() && options.Files.size() != entries.size())
        throw Failure(Exit::Usage, fmt::format("FILES: the result is of {} recordings", entries.size()));
    std::vector<std::string> files = options.Files;
    for (const auto &entry : entries) {
        if (entry.at("file").is_null())
            throw Failure(Exit::Usage, fmt::format("{}: of an instrument, whose light can't be had again",
                                                   visibleText(options.Result)));
        if (options.Files.empty()) files.emplace_back(entry.at("file").as_string());
    }
    return files;
}

// Empty: it is the recording of the result.
std::string otherFile(const boost::json::value &entry, const std::string &file)
{
    if (entry.at("bytes").is_null()) return "";
    const FileMark mark = markOf(file);
    const auto bytes = entry.at("bytes").to_number<uint64_t>();
    if (mark.Bytes != bytes) return fmt::format("{} bytes, not {}", mark.Bytes, bytes);
    return mark.Crc32 == entry.at("crc32").to_number<uint32_t>() ? "" : "other bytes at its start or end";
}

// What a result may say in another way, as the other one says it.
void takeNames(boost::json::object &result, const boost::json::object &from, bool filesToo)
{
    result["program"] = from.at("program");
    if (!filesToo) return;
    for (const char *key : {"file", "device"}) {
        result[key] = from.at(key);
        for (size_t i = 0; i < result.at("files").as_array().size(); ++i)
            result["files"].at(i).as_object()[key] = from.at("files").at(i).at(key);
    }
}

// The result of the job on the files, now.
boost::json::object computed(const boost::json::object &result, const std::vector<std::string> &files,
                             const std::string &name, const HostOptions &host, int &code)
{
    const Job job = jobOf(result.at("job"), name, measurementNames());
    const MemoryFile memory("");
    std::vector<std::string> words = {"--json", "--output=" + memory.path(), "--"};
    words.insert(words.end(), files.begin(), files.end());
    const AskedCommand asked(job, name, words);
    code = asked.Asked.Run(host);
    return std::move(parseExactJson(fileText("-o", memory.path(), mostResult)).as_object());
}

int compare(const boost::json::object &result, const std::vector<std::string> &files,
            const RerunOptions &options, const HostOptions &host)
{
    const std::string shown = visibleText(options.Result);
    for (size_t i = 0; i < files.size(); ++i)
        if (const std::string other = otherFile(result.at("files").at(i), files[i]); !other.empty()) {
            error(fmt::format("{}: {} isn't the recording of the result: {}", shown, visibleText(files[i]),
                              other));
            return static_cast<int>(Exit::Failed);
        }
    int code = 0;
    boost::json::object again = computed(result, files, options.Result, host, code);
    if (code > 128) return code; // stopped by the user
    if (again.at("program") != result.at("program"))
        note(fmt::format("{}: the result is of {}, this is {}", shown,
                         std::string_view(result.at("program").as_string()),
                         std::string_view(again.at("program").as_string())));
    takeNames(again, result, !options.Files.empty());
    const std::string difference = firstDifference(result, again);
    if (difference.empty()) {
        writeResult("", fmt::format("{}: equal\n", shown));
        return code;
    }
    writeResult("", fmt::format("{}: differs: {}\n", shown, difference.substr(difference.starts_with('.'))));
    return static_cast<int>(Exit::Failed);
}

int runRerun(const RerunOptions &options, const HostOptions &host)
{
    const boost::json::object result = readResult(options.Result);
    int code = 0;
    trusting(options.Result, [&] { code = compare(result, filesIn(result, options), options, host); });
    return code;
}

constexpr const char *rerunFooter =
    R"(Runs the job of a result again, on the recordings that it names or on FILES in their order, and compares
all that it says: every count, value, loss and note, but for the names of moved files and the version of
the program. It says equal, or what differs first.

Exit codes: 0 equal; 4 equal, and part of the data was missing then as now; 1 it differs, or a recording
is another one; 3 a recording isn't there.

Examples:
  tessel rerun monday.json
  tessel rerun monday.json /archive/2026/monday.tgx)";

} // namespace

Command addRerun(CLI::App &program)
{
    const auto options = std::make_shared<RerunOptions>();
    CLI::App *command = program.add_subcommand("rerun", "Compute a result again, and compare");
    command->add_option("RESULT", options->Result, "A result with --json")->type_name("")->required();
    command->add_option("FILES", options->Files, "Where its recordings are now")->type_name("");
    command->footer(rerunFooter);
    return {command, [options](const HostOptions &host) { return runRerun(*options, host); }};
}

} // namespace Tessel::Cli
