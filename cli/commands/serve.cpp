// `tessel serve`: an instrument for other computers, until the program is stopped.
#include "commands/commands.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/settings.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <thread>

namespace Tessel::Cli {

namespace {

struct ServeOptions
{
    std::string Address = "127.0.0.1";
    uint16_t Port = 55000;
    std::string Mode = "t3";
    std::vector<std::string> Assignments;
};

constexpr auto logPace = std::chrono::milliseconds(50); // the log takes less to bring a line out

std::string openServed(const ServeOptions &options, const HostOptions &host)
{
    const std::string id = openInstrument(host);
    initInstrument(id, modeNumber(options.Mode), 0);
    applySettings(options.Assignments);
    return id;
}

void awaitSignal()
{
    while (interruptSignal() == 0) restUntilSignal(std::chrono::hours(1));
}

int runServe(const ServeOptions &options, const HostOptions &given)
{
    if (!given.namesInstrument())
        throw Failure(Exit::Usage, "--device or --sim is required (see tessel serve --help)");
    HostOptions host = given;
    host.LogsMessages = !given.Quiet;
    const Session session(host);
    const std::string id = openServed(options, host);
    const InterruptWatch watch(HangUp::IsNoted);
    std::this_thread::sleep_for(logPace); // what the log has up to here leads nowhere
    if (host.LogsMessages) showLog();
    if (!tessel_serve(nullptr, options.Address.c_str(), options.Port))
        throw Failure(Exit::Failed, withReason(fmt::format("{}: can't be served", visibleText(id))));
    const bool hasColons = options.Address.find(':') != std::string::npos;
    const std::string address = hasColons ? fmt::format("[{}]", options.Address) : options.Address;
    writeAll(standardOutput(), fmt::format("{} {}:{}\n", visibleText(id), visibleText(address), options.Port));
    awaitSignal();
    tessel_stopServing(nullptr);
    return 0;
}

constexpr const char *serveFooter =
    R"(Opens the instrument, initialises it in the mode, and serves it until Ctrl-C (or TERM), which closes
the connections and the instrument. One line says what is served where: ID ADDRESS:PORT. Then the log
shows on standard error who connects, what is asked, and what fails; --quiet leaves it out.

There is no authentication and no encryption: whoever reaches the port reads the configuration of the
instrument, sets its inputs and starts its measurement. So only this computer does, unless --address
says otherwise; let others reach it only through a network that you trust, or a tunnel:
ssh -L 55000:localhost:55000 HOST.

Examples:
  tessel serve --sim
  tessel serve --device 1012345 --set 'ch*.level=-100mV'
  tessel serve --device 1012345 --address 192.168.1.5 --port 55001)";

} // namespace

Command addServe(CLI::App &program)
{
    const auto options = std::make_shared<ServeOptions>();
    CLI::App *command = program.add_subcommand("serve", "Serve an instrument to other computers");
    command->add_option("--address", options->Address, "Address of this computer, in numbers; 0.0.0.0, ::: all")
        ->type_name("IP")
        ->capture_default_str();
    asNumber(command->add_option("--port", options->Port, "TCP port"), 1, 65535)->capture_default_str();
    addSettingOption(*command, options->Assignments);
    asOneOf(command->add_option("--mode", options->Mode, "Measurement mode"), {"t2", "t3", histogramMode})
        ->capture_default_str();
    command->footer(serveFooter);
    return {command, [options](const HostOptions &host) { return runServe(*options, host); }};
}

} // namespace Tessel::Cli
