// Options that several commands have, and how an option's text becomes a value.
#pragma once

#include "program/files.h"
#include "program/plot.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Tessel::Cli {

// Where a result goes; the same options for every command that has one.
struct ResultOptions
{
    std::string File; // empty or "-": standard output
    bool Json = false;
    PlotOptions Plot;
    bool Force = false; // also onto a recording
};

// The positional argument FILE, which must be there unless the command works on an instrument.
void addRecordingArgument(CLI::App &command, std::string &path);

// -o, --json and --force; `plainForm`: what is written without --json.
void addOutputOptions(CLI::App &command, ResultOptions &options, const std::string &plainForm);
void addPlotOption(CLI::App &command, ResultOptions &options);

// What an option takes: how --help shows it, and what is refused while the options are read.
CLI::Option *asTime(CLI::Option *option); // without a unit in ps
CLI::Option *asChannel(CLI::Option *option);
CLI::Option *asNumber(CLI::Option *option, uint64_t least, uint64_t most);
CLI::Option *asNamed(CLI::Option *option);                                        // a name, which isn't empty
CLI::Option *asOneOf(CLI::Option *option, const std::vector<std::string> &names); // in any case

// With --plot alone nothing goes to standard output.
bool wantsText(const ResultOptions &options);

// The files of -o and --plot.
std::vector<Output> outputsOf(const ResultOptions &options);

// Runs `convert`, and turns a UnitError into a usage Failure that names the option.
double optionValue(const char *option, const std::function<double()> &convert);
std::vector<double> optionValues(const char *option, const std::function<std::vector<double>()> &convert);

// A time of whole picoseconds, without a unit in ps; anything else is a usage Failure.
uint64_t optionWholePs(const char *option, const std::string &text, uint64_t smallest);

// --for: how long an instrument measures, in whole ms as the library takes it.
int32_t acquisitionMs(const std::string &text);

} // namespace Tessel::Cli
