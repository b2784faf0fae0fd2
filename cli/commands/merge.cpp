// `tessel merge`: results of one job on several recordings as one.
#include "commands/commands.h"
#include "commands/measure.h"
#include "commands/measuring.h"
#include "jobs/job_options.h"
#include "jobs/result_file.h"
#include "jobs/result_sum.h"
#include "program/exit_codes.h"
#include "program/plot.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>
#include <stdexcept>

namespace Tessel::Cli {

namespace {

struct MergeOptions
{
    std::vector<std::string> Results;
    ResultOptions Output;
};

// Throws Failure. `code`: that data are missing in one of them.
boost::json::object sumOf(const std::vector<std::string> &paths, int &code)
{
    boost::json::object sum;
    for (const std::string &path : paths) {
        boost::json::object result = readResult(path);
        checkSummable(measurementOf(result, path));
        trusting(path, [&] {
            if (result.at("files").as_array().empty()) throw std::out_of_range("no files");
            if (!isCleanAndWhole(result.at("run").as_object())) code = static_cast<int>(Exit::DataLost);
            if (sum.empty())
                sum = std::move(result);
            else
                addResult(sum, result, path);
        });
    }
    return sum;
}

int runMerge(const MergeOptions &options, const CLI::App &given)
{
    checkPlot(options.Output.Plot);
    checkOutputs(options.Results, outputsOf(options.Output), options.Output.Force);
    int code = 0;
    boost::json::object sum = sumOf(options.Results, code);
    const std::string &first = options.Results.front();
    const Job job = jobOf(sum.at("job"), first, measurementNames());
    const AskedCommand asked(job, first, wordsGiven(given, {"RESULTS"}), &given);
    trusting(first, [&] { code = asked.Asked.WriteSum(std::move(sum), code); });
    return code;
}

constexpr const char *mergeFooter =
    R"(RESULTS are JSON files of one job on several recordings: of tessel run or a measuring command with
--json, of tessel batch, or merged already. Their raw counts are added up and normalised once, as if the
measuring command had been given all recordings in one call; the result is the same, byte for byte. So a
histogram is that of the joined data. Of g2 and fcs pairs, n1, n2 and T are sums: pairs of events of two
recordings aren't counted. It says why where a sum isn't defined: traces, folds, other bins, another job.
Each recording keeps its losses and verdict in files; if one isn't clean and whole, the exit code is 4.

Examples:
  tessel merge job.results/*.json -o sum.csv --plot sum.png
  tessel merge monday.json tuesday.json --json | jq '{n1, n2, measuredPs}')";

} // namespace

Command addMerge(CLI::App &program)
{
    const auto options = std::make_shared<MergeOptions>();
    CLI::App *command = program.add_subcommand("merge", "Add up the results of a job on several recordings");
    command->add_option("RESULTS", options->Results, "Results with --json")->type_name("")->required();
    addOutputOptions(*command, options->Output, "CSV");
    addPlotOption(*command, options->Output);
    command->footer(mergeFooter);
    return {command, [options, command](const HostOptions &) { return runMerge(*options, *command); }};
}

} // namespace Tessel::Cli
