// `tessel config`: what is set on an instrument, and how far each setting goes.
#include "commands/commands.h"
#include "program/device_file.h"
#include "program/exit_codes.h"
#include "program/ini_file.h"
#include "program/instrument.h"
#include "program/options.h"
#include "program/output.h"
#include "program/remote.h"
#include "program/settings.h"
#include "program/text_file.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <iterator>
#include <memory>
#include <optional>

namespace Tessel::Cli {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

struct ConfigOptions
{
    std::string Instrument; // an id, or "sim"
    std::string Server;     // of another computer, which has it; empty: it is here
    std::string Mode;       // empty: as the file has it, else T3
    std::optional<int32_t> RefSource;
    std::string IniFile, DeviceFile;
    std::vector<std::string> Assignments;
    bool Exports = false;
    std::string ExportFile; // empty: it is the result
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

struct GivenFiles
{
    std::string Ini;
    object Device; // empty: none
};

GivenFiles readFiles(const ConfigOptions &options)
{
    GivenFiles files;
    if (!options.IniFile.empty()) files.Ini = fileText("--ini", options.IniFile);
    if (!options.DeviceFile.empty()) files.Device = readDeviceFile(options.DeviceFile);
    return files;
}

void checkFiles(const ConfigOptions &options, const HostOptions &host)
{
    std::vector<Output> outputs = outputsOf(options.Result);
    if (!options.ExportFile.empty()) outputs.push_back({"--export", options.ExportFile});
    checkOutputs({host.IniPath, host.SimulationPath, options.IniFile, options.DeviceFile}, outputs,
                 options.Result.Force);
}

int32_t modeOf(const ConfigOptions &options, const object &device)
{
    constexpr int32_t t3 = 3;
    if (!options.Mode.empty()) return modeNumber(options.Mode);
    return numberIn(device, "MeasMode").value_or(t3);
}

void openHere(const ConfigOptions &options, const HostOptions &host, const object &device)
{
    const int32_t refSource = options.RefSource.value_or(numberIn(device, "RefSource").value_or(0));
    initInstrument(openInstrument(host), modeOf(options, device), refSource);
}

std::string resultText(const ConfigOptions &options, const object &config, const std::vector<Clamped> &clamped)
{
    if (options.Exports && options.ExportFile.empty()) return jsonText(config);
    return options.Result.Json ? jsonText(asJson(config, clamped)) : table(config);
}

// What was set, and the result to be written.
struct Configured
{
    IniOutcome Ini;
    std::string Result{}, Export{};
};

Configured configure(const ConfigOptions &options, const HostOptions &given, const GivenFiles &files)
{
    const bool isRemote = !options.Server.empty();
    HostOptions host = isRemote ? given : withInstrument(given, options.Instrument);
    host.LogsMessages = !files.Ini.empty();
    const Session session(host);
    checkFiles(options, host);
    if (isRemote)
        openRemote(options.Server, options.Instrument.empty() ? given.DeviceId : options.Instrument);
    else
        openHere(options, host, files.Device);
    std::vector<Clamped> clamped;
    if (!files.Device.empty()) clamped = applyDeviceFile(files.Device, options.DeviceFile);
    Configured done;
    if (!files.Ini.empty()) done.Ini = applyIniText(files.Ini, host.Verbose);
    for (Clamped &each : applySettings(options.Assignments)) clamped.push_back(std::move(each));
    if (isRemote && !options.Assignments.empty()) connectServer(options.Server); // what became of them there
    const object config = deviceConfig();
    done.Result = resultText(options, config, clamped);
    done.Export = jsonText(config);
    return done;
}

int runConfig(const ConfigOptions &options, const HostOptions &given)
{
    if (!options.Server.empty() && given.Simulated) throw Failure(Exit::Usage, "--sim and --host: choose one");
    if (options.Exports && options.ExportFile.empty() && options.Result.Json)
        throw Failure(Exit::Usage, "--export without a file and --json: choose one");
    const Configured done = configure(options, given, readFiles(options));
    if (!options.ExportFile.empty()) writeResult(options.ExportFile, done.Export);
    writeResult(options.Result.File, done.Result);
    warnOfIni(done.Ini, options.IniFile);
    return static_cast<int>(done.Ini.Failed ? Exit::Failed : Exit::Success);
}

constexpr const char *configFooter =
    R"(The instrument is opened and initialised in the mode, which sends it the initial settings; then what
--load or --ini has is sent, then each --set, in its order, and all settings are shown. They hold until
the instrument is closed, at the end of the command; a measurement takes --set too.

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

--export writes the instrument's configuration, as getDeviceConfig gives it, in place of the table, or
into a file beside it; --load takes it, or the result of --json. It keeps mode, reference clock, every
setting of the table and the names of the inputs, but not the levels of the other trigger mode, which
aren't in it. What the file leaves out stays; a file that can't be understood changes nothing.

--ini takes an INI text: sections Device, All_Channels and Channel_0, ...; each key is set in its order. An
unknown key is passed over with a warning; a wrong value too, and the exit code is 1. The library's own
settings file stands before the command: tessel --ini FILE config.

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
  tessel config sim --set 'ch*.level=-80mV' --export lab.json
  tessel config sim --load lab.json
  tessel config --host lab-pc --set ch1.level=-80mV
  tessel config sim --json | jq -c '.settings[] | [.key, .value, .unit]')";

void addFileOptions(CLI::App &command, ConfigOptions &options)
{
    CLI::Option *from =
        asNamed(command.add_option("--load", options.DeviceFile, "Set what a file of --export or --json has"))
            ->type_name("FILE");
    asNamed(command.add_option("--ini", options.IniFile, "Set what an INI file has"))
        ->type_name("FILE")
        ->excludes(from);
    command
        .add_option_function<std::string>(
            "--export",
            [&options](const std::string &file) {
                options.Exports = true;
                options.ExportFile = file;
            },
            "Write the configuration as JSON for --load, in place of the table or into FILE")
        ->type_name("[FILE]")
        ->expected(0, 1);
}

} // namespace

Command addConfig(CLI::App &program)
{
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App *command = program.add_subcommand("config", "Show the settings of an instrument, and set them");
    command->add_option("INSTRUMENT", options->Instrument, "Its id, or sim: the first simulated one")
        ->type_name("");
    addSettingOption(*command, options->Assignments);
    addHostOption(*command, options->Server);
    asOneOf(command->add_option("--mode", options->Mode, "Measurement mode; t3, or as in --load"),
            {"t2", "t3", histogramMode});
    asNumber(command->add_option("--ref-source", options->RefSource,
                                 "Reference clock; 0, the internal one, or as in --load"),
             0, 100);
    addFileOptions(*command, *options);
    addOutputOptions(*command, options->Result, "a table");
    for (const char *initialises : {"--mode", "--ref-source", "--load", "--ini"})
        command->get_option(initialises)->excludes(command->get_option("--host"));
    command->footer(configFooter);
    return {command, [options](const HostOptions &host) { return runConfig(*options, host); }};
}

} // namespace Tessel::Cli
