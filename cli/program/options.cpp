// What the commands' options share.
#include "program/options.h"

#include "program/exit_codes.h"
#include "program/session.h"
#include "program/units.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

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

void addRecordingArgument(CLI::App &command, std::string &path)
{
    command.add_option("FILE", path, "The recording (.tgx)")->type_name("");
}

void addOutputOptions(CLI::App &command, ResultOptions &options, const std::string &plainForm)
{
    command.add_option("-o,--output", options.File, "Write to FILE instead of standard output")
        ->type_name("FILE");
    command.add_flag("--json", options.Json, "Write one JSON object instead of " + plainForm);
    command.add_flag("--force", options.Force, "Replace FILE also if it is a recording");
}

void addPlotOption(CLI::App &command, ResultOptions &options)
{
    command
        .add_option(
            "--plot", options.Plot.File,
            "Draw a .png, .svg or .pdf file with gnuplot; without -o and --json nothing else is written")
        ->type_name("FILE");
    command.add_option("--title", options.Plot.Title, "Title of the plot")->type_name("TEXT");
    command
        .add_option("--size", options.Plot.Size, "Width and height of the plot; a PNG has 1.6 pixels for each")
        ->type_name("WxH")
        ->capture_default_str();
    command.add_flag("--errors", options.Plot.Errors, "Bars of one standard deviation in the plot");
}

CLI::Option *asTime(CLI::Option *option)
{
    return option->description(option->get_description() + " [ps]")->type_name("TIME")->capture_default_str();
}

// The stream has at most 255 channels.
CLI::Option *asChannel(CLI::Option *option)
{
    return option->type_name("CHANNEL")->check(CLI::Range(0, 254).description(""));
}

CLI::Option *asNumber(CLI::Option *option, uint64_t least, uint64_t most)
{
    return option->type_name(fmt::format("{}..{}", least, most))
        ->check(CLI::Range(least, most).description(""));
}

CLI::Option *asNamed(CLI::Option *option)
{
    return option->check([](const std::string &text) { return text.empty() ? "it is empty" : ""; });
}

CLI::Option *asOneOf(CLI::Option *option, const std::vector<std::string> &names)
{
    return option->type_name(fmt::format("{}", fmt::join(names, "|")))
        ->transform(CLI::IsMember(names, CLI::ignore_case).description(""));
}

bool wantsText(const ResultOptions &options)
{
    return options.Plot.File.empty() || options.Json || !options.File.empty();
}

std::vector<Output> outputsOf(const ResultOptions &options)
{
    std::vector<Output> outputs;
    if (wantsText(options)) outputs.push_back({"-o", options.File});
    if (!options.Plot.File.empty()) outputs.push_back({"--plot", options.Plot.File});
    return outputs;
}

double optionValue(const char *option, const std::function<double()> &convert)
{
    return converted(option, convert);
}

uint64_t optionWholePs(const char *option, const std::string &text, uint64_t smallest)
{
    const double ps = optionValue(option, [&] { return parseTimePs(text, "ps"); });
    constexpr double most = 1e18;
    if (ps > most) throw Failure(Exit::Usage, fmt::format("{}: at most {}", option, timeText(most)));
    if (ps < static_cast<double>(smallest) || ps != std::floor(ps))
        throw Failure(Exit::Usage, fmt::format("{}: whole picoseconds, at least {}ps", option, smallest));
    return static_cast<uint64_t>(ps);
}

int32_t acquisitionMs(const std::string &text)
{
    constexpr double psPerMs = 1e9;
    const double ms = std::round(optionValue("--for", [&] { return parseTimePs(text, "ps"); }) / psPerMs);
    if (ms < 1 || ms > longestRunMs) throw Failure(Exit::Usage, "--for: from 1ms to 100h");
    return static_cast<int32_t>(ms);
}

std::vector<double> optionValues(const char *option, const std::function<std::vector<double>()> &convert)
{
    return converted(option, convert);
}

} // namespace Tessel::Cli
