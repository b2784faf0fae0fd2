#include "commands/measuring.h"

#include "jobs/job_options.h"
#include "program/exit_codes.h"
#include "program/text_file.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

struct MeasuringCommand
{
    const char *Name;
    Command (*Add)(CLI::App &program);
};

constexpr MeasuringCommand measuringCommands[] = {
    {"histogram", addHistogram}, {"g2", addG2},         {"fcs", addFcs},
    {"trace", addTrace},         {"hist2d", addHist2d}, {"fold", addFold}};

Command addMeasuring(CLI::App &program, const std::string &name)
{
    const auto found = std::ranges::find(measuringCommands, name, &MeasuringCommand::Name);
    return found->Add(program);
}

} // namespace

std::vector<std::string> measurementNames()
{
    std::vector<std::string> names;
    for (const MeasuringCommand &command : measuringCommands) names.emplace_back(command.Name);
    return names;
}

void withMeasuringCommands(const std::function<void(const std::vector<const CLI::App *> &)> &use)
{
    CLI::App program;
    std::vector<const CLI::App *> commands;
    for (const MeasuringCommand &command : measuringCommands) commands.push_back(command.Add(program).App);
    use(commands);
}

Job readJob(const std::string &path)
{
    const std::string name = path == "-" ? "standard input" : path;
    return parseJob(fileText("JOB", path == "-" ? "/dev/stdin" : path), name, measurementNames());
}

AskedCommand::AskedCommand(const Job &job, const std::string &name, const std::vector<std::string> &further,
                           const CLI::App *given, bool ofInstrument)
    : Program(std::make_unique<CLI::App>()), Asked(addMeasuring(*Program, job.Measurement))
{
    std::vector<std::string> line = wordsOf(job, *Asked.App, given, ofInstrument, name);
    line.insert(line.begin(), job.Measurement);
    line.insert(line.end(), further.begin(), further.end());
    std::ranges::reverse(line); // as the parser takes them
    try {
        Program->parse(std::move(line));
    } catch (const CLI::ParseError &wrong) {
        throw Failure(Exit::Usage, fmt::format("{}: {}", visibleText(name), visibleText(wrong.what())));
    }
}

AskedCommand::~AskedCommand() = default;

} // namespace Tessel::Cli
