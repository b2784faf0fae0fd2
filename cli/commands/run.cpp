// `tessel run`: the measurement of a job file.
#include "commands/commands.h"
#include "commands/measure.h"
#include "commands/measuring.h"
#include "jobs/job_options.h"
#include "program/exit_codes.h"
#include "program/output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace Tessel::Cli {

namespace {

struct RunOptions
{
    std::string JobFile;
    bool Schema = false;
    MeasureOptions Measure; // what of it is not the job's; handed on as it was given
};

void writeSchema()
{
    withMeasuringCommands([](const std::vector<const CLI::App *> &commands) {
        writeResult("-", indentedJson(jobSchema(commands)));
    });
}

int runJob(const RunOptions &options, const CLI::App &given, HostOptions host)
{
    if (options.Schema) {
        writeSchema();
        return static_cast<int>(Exit::Success);
    }
    if (options.JobFile.empty()) throw Failure(Exit::Usage, "JOB is required (see tessel run --help)");
    const Job job = readJob(options.JobFile);
    const bool hasFiles = !options.Measure.Files.empty();
    if (hasFiles && host.namesInstrument())
        throw Failure(Exit::Usage, "a recording and an instrument: choose one");
    if (!hasFiles && !host.namesInstrument()) chooseInstrument(host, job, options.JobFile);
    if (!hasFiles && !host.namesInstrument())
        throw Failure(Exit::Usage,
                      "FILES are required, as the job names no instrument (see tessel run --help)");
    const AskedCommand asked(job, options.JobFile, wordsGiven(given, {"JOB", "--schema"}), &given, !hasFiles);
    return asked.Asked.Run(host);
}

constexpr const char *runFooter =
    R"-(JOB is a JSON file that says what is measured, with the options of the measuring command; "-" reads it
from standard input. Where it is measured, and what becomes of the result, is said here, as to that
command, and the result is the same, byte for byte:
  {"tessel": 1, "measurement": "g2", "chain": "delay(2; 5ns)", "source": {"from": "1s"},
   "parameters": {"chan1": 1, "chan2": 2, "window": "100ns", "bin-width": "100ps"}}
source has from, to and sort, and of an instrument sim, device, for, mode and set: these are for a run
without FILES, and give way to what is said here. The JSON of every measurement has its job, so a result
can be run again: tessel rerun. --schema prints the JSON Schema of jobs; docs/jobs.md explains them.

Examples:
  tessel run g2.job.json monday.tgx -o monday.json --json
  tessel run g2.job.json --sim --mode t2 --live
  tessel run --schema > job.schema.json)-";

} // namespace

Command addRun(CLI::App &program)
{
    const auto options = std::make_shared<RunOptions>();
    CLI::App *command = program.add_subcommand("run", "Run the measurement of a job file");
    command->add_option("JOB", options->JobFile, "The job (.json)")->type_name("");
    command->add_option("FILES", options->Measure.Files, "Recordings (.tgx)")->type_name("");
    addInstrumentOptions(*command, options->Measure, "1s, with --live until Ctrl-C");
    addResultOptions(*command, options->Measure);
    addUpdateOptions(*command, options->Measure.Updates);
    command->add_flag("--schema", options->Schema, "Print the JSON Schema of jobs");
    command->footer(runFooter);
    return {command, [options, command](const HostOptions &host) { return runJob(*options, *command, host); }};
}

} // namespace Tessel::Cli
