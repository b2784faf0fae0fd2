// What the commands' options share.
#include "commands.h"
#include "exit_codes.h"
#include "units.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cmath>

namespace Tessel::Cli {

namespace {

template <class Result>
Result converted(const char *option, const std::function<Result()> &convert)
{
    try {
        return convert();
    } catch (const UnitError &unreadable) {
        throw Failure(Exit::Usage, fmt::format("{} {}", option, unreadable.what()));
    }
}

} // namespace

void addOutputOptions(CLI::App &command, ResultOptions &options)
{
    command
        .add_option("-o,--output", options.File, "Write the result to FILE instead of standard output ('-')")
        ->type_name("FILE");
    command.add_flag("--json", options.Json, "Write one JSON object instead of CSV");
}

void addPlotOption(CLI::App &command, ResultOptions &options)
{
    command
        .add_option(
            "--plot", options.PlotFile,
            "Draw the result into a .png or .svg file (needs gnuplot); without -o or --json nothing else "
            "is written")
        ->type_name("FILE");
}

void addChainOption(CLI::App &command, ChainOptions &options)
{
    command
        .add_option(
            "--chain", options.Texts,
            "Stages that the events pass before they are counted, in order; `tessel chain --help` tells "
            "of them. May be given several times")
        ->type_name("TEXT|FILE.json")
        ->allow_extra_args(false);
}

bool wantsText(const ResultOptions &options)
{
    return options.PlotFile.empty() || options.Json || !options.File.empty();
}

double optionValue(const char *option, const std::function<double()> &convert)
{
    return converted(option, convert);
}

uint64_t optionWholePs(const char *option, const std::string &text, uint64_t smallest)
{
    const double ps = optionValue(option, [&] { return parseTimePs(text, "ps"); });
    if (ps < static_cast<double>(smallest) || ps != std::floor(ps) || ps > 1e18)
        throw Failure(Exit::Usage, fmt::format("{}: whole picoseconds, at least {}ps", option, smallest));
    return static_cast<uint64_t>(ps);
}

std::vector<double> optionValues(const char *option, const std::function<std::vector<double>()> &convert)
{
    return converted(option, convert);
}

} // namespace Tessel::Cli
