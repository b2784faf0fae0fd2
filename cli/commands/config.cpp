// `tessel config`: what is set on an instrument, and how far each setting goes.
#include "commands/commands.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/options.h"
#include "program/output.h"
#include "program/remote.h"
#include "program/settings.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

struct ConfigOptions
{
    std::string Instrument; // an id, or "sim"
    std::string Server;     // of another computer, which has it; empty: it is here
    std::string Mode = "t3";
    int32_t RefSource = 0;
    std::vector<std::string> Assignments;
    ResultOptions Result;
};

// The instrument that the argument names, as the global options would.
HostOptions withInstrument(HostOptions host, const std::string &argument)
{
    if (argument == "sim")
        host.Simulated = true;
    else if (!argument.empty() && !host.DeviceId.empty())
        throw Failure(Exit::Usage, "an instrument and --device: choose one");
    else if (!argument.empty())
        host.DeviceId = argument;
    if (!host.namesInstrument())
        throw Failure(Exit::Usage, "an instrument's id or sim is required (see tessel config --help)");
    return host;
}

void addInstrument(fmt::memory_buffer &text, const object &config)
{
    const auto textOf = [&](const char *key) { return visibleText(std::string(config.at(key).as_string())); };
    const std::pair<const char *, std::string> rows[] = {
        {"Instrument", textOf("ID")},
        {"Model", fmt::format("{}, part {}, version {}", textOf("Model"), textOf("PartNo"), textOf("Version"))},
        {"Mode", modeText(config.at("MeasMode").to_number<int64_t>())},
        {"Reference source", fmt::format("{}", config.at("RefSource").to_number<int64_t>())},
        {"Base resolution", timeText(config.at("BaseResolution").to_number<double>())},
        {"Resolution", timeText(config.at("Resolution").to_number<double>())},
        {"Histogram bins", fmt::format("{}", config.at("NumBins").to_number<uint64_t>())},
        {"Inputs", fmt::format("{}", config.at("NumChans").to_number<int64_t>())}};
    for (const auto &[name, content] : rows)
        fmt::format_to(std::back_inserter(text), "{:<22} {}\n", name, content);
}

std::string table(const object &config)
{
    fmt::memory_buffer text;
    addInstrument(text, config);
    auto out = std::back_inserter(text);
    fmt::format_to(out, "\n{:<22} {:>14}   {}\n", "Setting", "Value", "Range");
    for (const Setting &setting : merged(readSettings()))
        fmt::format_to(out, "{:<22} {:>14}   {}{}\n", setting.Key, valueText(setting, setting.Value),
                       rangeText(setting), setting.InUse ? "" : ", in the other trigger mode");
    return fmt::to_string(text);
}

object asJson(const object &config, const std::vector<Clamped> &clamped)
{
    object known = libraryText(TESSEL_TEXT_SETTINGS).as_object();
    array changes;
    for (const Clamped &each : clamped)
        changes.push_back({{"key", each.Key}, {"asked", each.Asked}, {"set", each.Set}});
    return {{"schema", "tessel.config/1"},      {"family", known.at("family")},
            {"features", known.at("features")}, {"device", config},
            {"settings", known.at("settings")}, {"clamped", std::move(changes)}};
}

int runConfig(const ConfigOptions &options, const HostOptions &given)
{
    const bool isRemote = !options.Server.empty();
    if (isRemote && given.Simulated) throw Failure(Exit::Usage, "--sim and --host: choose one");
    const HostOptions host = isRemote ? given : withInstrument(given, options.Instrument);
    const Session session(host);
    checkOutputs({host.IniPath, host.SimulationPath}, outputsOf(options.Result), options.Result.Force);
    if (isRemote)
        openRemote(options.Server, options.Instrument.empty() ? given.DeviceId : options.Instrument);
    else
        initInstrument(openInstrument(host), modeNumber(options.Mode), options.RefSource);
    const std::vector<Clamped> clamped = applySettings(options.Assignments);
    if (isRemote && !options.Assignments.empty()) connectServer(options.Server); // what became of them there
    const object config = deviceConfig();
    writeResult(options.Result.File, options.Result.Json ? jsonText(asJson(config, clamped)) : table(config));
    return 0;
}

constexpr const char *configFooter =
    R"(The instrument is opened and initialised in the mode, which sends it the initial settings; then each
--set is sent, in its order, and all settings are shown. They hold until the instrument is closed,
at the end of the command; a measurement takes --set too.

--set KEY=VALUE takes the keys of the table. Voltages have the units uV, mV and V, times those of all
options; a number without a unit is in the unit of the table. Words stand there as they are taken.
ch*.KEY sets every input. A value out of its range becomes the nearest, with a warning, a dead time
below it off. Which settings there are depends on the instrument:

  sync.level, sync.edge             edge trigger of the sync; of an input: ch1.level, ch1.edge
  sync.cfd-level, sync.zero-cross   constant fraction; which of the two holds: sync.trigger
  sync.offset, sync.dead-time, sync.enable        the same for inputs: ch1.offset, ...
  sync.divider, binning, offset, length-code, stop-count, hysteresis, timing-mode
  control.mode, control.start-edge, control.stop-edge     what starts and stops a measurement
  marker1.edge, marker1.enable, marker.holdoff, trigger-output, overflow-hold

With --host the instrument is one that another computer serves. It is shown as it is set there, and
of the settings only level and edge of an input can be set.

JSON: schema (tessel.config/1), family, features, and
  device    state of the instrument, as in tessel info
  settings  [{key, field (its key in device), operation, channel (from 0; inputs only), unit, min, max,
            canBeOff, choices (words for 0, 1), inUse, value}]
  clamped   [{key, asked, set}]

Examples:
  tessel config sim
  tessel config SIM-ZP-0 --sim --set sync.level=-100mV --set 'ch*.offset=1.5ns'
  tessel config --host lab-pc --set ch1.level=-80mV
  tessel config sim --json | jq -c '.settings[] | [.key, .value, .unit]')";

} // namespace

Command addConfig(CLI::App &program)
{
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App *command = program.add_subcommand("config", "Show the settings of an instrument, and set them");
    command->add_option("INSTRUMENT", options->Instrument, "Its id, or sim: the first simulated one")
        ->type_name("");
    addSettingOption(*command, options->Assignments);
    addHostOption(*command, options->Server);
    asOneOf(command->add_option("--mode", options->Mode, "Measurement mode"), {"t2", "t3", histogramMode})
        ->capture_default_str();
    asNumber(command->add_option("--ref-source", options->RefSource, "Reference clock; 0: internal"), 0, 100)
        ->capture_default_str();
    addOutputOptions(*command, options->Result, "a table");
    for (const char *initialises : {"--mode", "--ref-source"})
        command->get_option(initialises)->excludes(command->get_option("--host"));
    command->footer(configFooter);
    return {command, [options](const HostOptions &host) { return runConfig(*options, host); }};
}

} // namespace Tessel::Cli
