// The program `tessel`: a host on tessel.h alone, a file per command.
#include "commands/commands.h"
#include "program/child.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/interrupt.h"
#include "program/nearest.h"
#include "program/options.h"
#include "program/output.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <new>
#include <sstream>

namespace {

using namespace Tessel::Cli;

constexpr const char *programFooter =
    R"(Results go to standard output or to -o FILE, everything else to standard error.

Times have the units ps, ns, us, ms, s, min and h, rates Hz, kHz, MHz, GHz or cps, kcps, Mcps,
Gcps: 2.5ns, 80MHz, 100kcps. A number without a unit is in the unit that the option shows in
brackets: [ps].

Exit codes:
  0    success
  1    failure, or a recording that verify finds invalid
  2    wrong usage
  3    no such file or instrument, or one that can't be opened
  4    finished, but part of the data is missing, or the recording was not closed
  130  stopped by Ctrl-C; the partial result is written (a second Ctrl-C ends the program at once)

Examples:
  tessel simulate decay.tgx --rate 200kcps,100kcps --lifetime 1.2ns,3.5ns --duration 10s
  tessel info decay.tgx
  tessel histogram decay.tgx --plot decay.png
  tessel histogram decay.tgx --json | jq '.channels[].total'
  tessel devices --sim
  tessel histogram --sim --live
  tessel record run.tgx --sim --for 10s

tessel COMMAND --help shows the options of a command.)";

int runCommand(const std::vector<Command> &commands, const HostOptions &options)
{
    for (const Command &command : commands)
        if (command.App->parsed()) return command.Run(options);
    return static_cast<int>(Exit::Usage); // not reached: the parser demands a command
}

// What the first word that the parser had no use for was probably meant to be; empty: nothing that is known.
std::string meant(const CLI::App &program)
{
    const auto commands = program.get_subcommands();
    const std::vector<std::string> left = program.remaining(true);
    const auto wrong = std::ranges::find_if(
        left, [&](const std::string &word) { return commands.empty() || word.starts_with('-'); });
    if (wrong == left.end()) return {};
    std::vector<std::string> known;
    if (!wrong->starts_with('-')) {
        for (const CLI::App *command : program.get_subcommands({})) known.push_back(command->get_name());
        return nearestName(*wrong, known);
    }
    for (const CLI::App *app : {commands.empty() ? &program : commands.front(), &program})
        for (const CLI::Option *option : app->get_options())
            for (const std::string &name : option->get_lnames()) known.push_back("--" + name);
    return nearestName(wrong->substr(0, wrong->find('=')), known);
}

// What is wrong, in words that name it.
std::string faultOf(const CLI::App &program, const CLI::ParseError &thrown)
{
    const std::vector<std::string> left = program.remaining(true);
    const bool isCommand = program.get_subcommands().empty() && !left.empty() && !left.front().starts_with('-');
    return isCommand ? fmt::format("there is no command {}", visibleText(left.front()))
                     : visibleText(thrown.what());
}

// Help and version are results; anything else that the parser throws is wrong usage.
int answerParser(const CLI::App &program, const CLI::ParseError &thrown)
{
    if (thrown.get_exit_code() != 0) {
        const auto commands = program.get_subcommands(); // what was read up to here
        const std::string command = commands.empty() ? "" : commands.front()->get_name() + " ";
        const std::string nearest = meant(program);
        error(fmt::format("{}{} (see tessel {}--help)", faultOf(program, thrown),
                          nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest), command));
        return static_cast<int>(Exit::Usage);
    }
    std::ostringstream text, ignored;
    program.exit(thrown, text, ignored);
    writeResult("-", text.str());
    return static_cast<int>(Exit::Success);
}

// Returns --sim, which may have a value or none.
CLI::Option *addInstrumentOptions(CLI::App &program, HostOptions &options)
{
    program.add_option("--device", options.DeviceId, "Work on this instrument, instead of a recording")
        ->type_name("ID");
    return program.add_flag("--sim", options.SimulationPath,
                            "Use the simulated instruments; --sim=FILE those that a JSON file describes");
}

void readSim(const CLI::Option &sim, HostOptions &options)
{
    options.Simulated = sim.count() > 0;
    if (options.SimulationPath == "true") options.SimulationPath.clear(); // the parser's word for no value
}

// A recording or an instrument, as the command takes them.
void checkSource(const CLI::App &command, const HostOptions &options)
{
    const CLI::Option *file = command.get_option_no_throw("FILE");
    const bool hasFile = file && file->count() > 0;
    if (file && !hasFile && !options.namesInstrument())
        throw Failure(Exit::Usage, fmt::format("FILE is required (see tessel {} --help)", command.get_name()));
    if (hasFile && options.namesInstrument())
        throw Failure(Exit::Usage, "a recording and an instrument: choose one");
    const bool canMeasure = command.get_option_no_throw("--for") != nullptr;
    if (!file || hasFile || canMeasure) return;
    const Session session(options);
    const std::string id = openInstrument(options);
    throw Failure(Exit::NoDevice, fmt::format("{}: tessel {} works on recordings only, not on instruments",
                                              visibleText(id), command.get_name()));
}

int run(int argc, char **argv)
{
    CLI::App program("tessel - recordings of time-tagging instruments for single-photon counting", "tessel");
    HostOptions options;
    program.set_version_flag("--version", "tessel " TESSEL_VERSION, "Print the version and exit");
    program.set_help_flag("-h,--help", "Print this help and exit");
    program.add_flag("-v,--verbose", options.Verbose, "Show the library's log on standard error");
    program.add_flag("-q,--quiet", options.Quiet, "No progress and no notes; warnings and errors remain");
    program
        .add_option("--ini", options.IniPath,
                    "Settings file for the library, instead of the program's own settings")
        ->type_name("FILE");
    asNumber(program.add_option("--threads", options.Threads,
                                "Threads that count a recording (default one for each core)"),
             1, 256);
    const CLI::Option *sim = addInstrumentOptions(program, options);
    program.require_subcommand(1);
    program.fallthrough();
    program.footer(programFooter);
    const std::vector<Command> commands = {
        addInfo(program),  addSimulate(program), addImport(program), addHistogram(program), addG2(program),
        addFcs(program),   addTrace(program),    addHist2d(program), addUnfold(program),    addFold(program),
        addChain(program), addVerify(program),   addRepair(program), addDevices(program),   addConfig(program),
        addServe(program), addRates(program),    addRecord(program), addStart(program),     addRun(program),
        addRerun(program), addMerge(program),    addBatch(program)};
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &thrown) {
        return answerParser(program, thrown);
    }
    readSim(*sim, options);
    setQuiet(options.Quiet);
    checkSource(*program.get_subcommands().front(), options);
    return runCommand(commands, options);
}

} // namespace

int main(int argc, char **argv)
{
    claimStandardOutput();
    endWithParent();
    catchSignals();
    try {
        return run(argc, argv);
    } catch (const Failure &failure) {
        error(failure.what());
        return static_cast<int>(failure.Code);
    } catch (const std::bad_alloc &) {
        error("not enough memory");
    } catch (const std::exception &unexpected) {
        error(visibleText(unexpected.what()));
    }
    return static_cast<int>(Exit::Failed);
}
