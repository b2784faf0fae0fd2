// `tessel start`: starts a measurement of an instrument of another computer.
#include "commands/commands.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/options.h"
#include "program/remote.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace Tessel::Cli {

namespace {

struct StartOptions
{
    std::string Server, Instrument;
    std::string For = "1s";
};

int runStart(const StartOptions &options, const HostOptions &host)
{
    const int32_t acqTimeMs = acquisitionMs(options.For);
    const Session session(host);
    const std::string id = openRemote(options.Server, options.Instrument);
    uint8_t finished = 0;
    rawMeasure(nullptr, static_cast<uint32_t>(acqTimeMs), 1, 0, nullptr, nullptr, 0, &finished);
    const std::string what = fmt::format("{}: a measurement of {}", visibleText(id), timeText(acqTimeMs * 1e9));
    if (const std::string told = withReason(what); told != what) throw Failure(Exit::NoDevice, told);
    connectServer(options.Server); // it answers after it has read the command
    note(fmt::format("{} was asked for", what));
    return 0;
}

constexpr const char *startFooter =
    R"(Asks the server to start, and ends; the events stay there. Its answer says that it has read the
command: whether the instrument has started, only its own log says.

Examples:
  tessel start --host lab-pc --for 10s
  tessel start SIM-ZP-0 --host 192.168.1.5:55001 --for 1min)";

} // namespace

Command addStart(CLI::App &program)
{
    const auto options = std::make_shared<StartOptions>();
    CLI::App *command = program.add_subcommand("start", "Start a measurement on another computer");
    command->add_option("INSTRUMENT", options->Instrument, "Its id; the server's only one without")
        ->type_name("");
    addHostOption(*command, options->Server);
    command->get_option("--host")->required();
    command->add_option("--for", options->For, "How long it measures [ps]")
        ->type_name("TIME")
        ->capture_default_str();
    command->footer(startFooter);
    return {command, [options](const HostOptions &host) { return runStart(*options, host); }};
}

} // namespace Tessel::Cli
