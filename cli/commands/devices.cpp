// `tessel devices`: the instruments that there are, and where their libraries were looked for.
#include "commands/commands.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/options.h"
#include "program/output.h"
#include "program/remote.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

struct DevicesOptions
{
    std::vector<std::string> Files;
    std::string Server; // of another computer, whose instruments are to be listed
    ResultOptions Result;
};

constexpr int32_t t2 = 2;

// Only an instrument that is initialised says what it is. Empty: it is; else why not.
std::string initialise(const std::string &id)
{
    std::vector<char> buffer(id.begin(), id.end());
    buffer.push_back('\0');
    if (!getDevice(buffer.data())) return withReason("can't be opened");
    return initDevice(t2, 0) ? "" : withReason("can't be initialised");
}

// Empty: it is to be looked at.
std::string knownState(const object &config)
{
    const int type = config.at("DeviceType").to_number<int>();
    if (type == 1) return "file";
    if (type == 2) return config.at("Index").to_number<int>() < 0 ? "not served" : "remote";
    if (isBusy(config)) return "busy";
    return config.at("IsOpen").as_bool() ? "open" : "";
}

value libraryVersion(const value &family, const value &libraries)
{
    for (const value &library : libraries.as_array())
        if (library.at("family") == family) return library.at("version");
    return nullptr;
}

object listedDevice(const std::string &id, const value &libraries)
{
    std::string state = knownState(libraryText(TESSEL_TEXT_DEVICE, id).as_object());
    const bool isNew = state.empty();
    const std::string why = isNew ? initialise(id) : "";
    if (isNew) state = why.empty() ? "free" : "failed";
    if (!why.empty()) warn(fmt::format("{}: {}", visibleText(id), why));
    const object config = libraryText(TESSEL_TEXT_DEVICE, id).as_object();
    const object known = libraryText(TESSEL_TEXT_SETTINGS, id).as_object();
    if (isNew) closeDevice(0);
    const bool isFile = state == "file";
    return {{"id", id},
            {"family", known.at("family")},
            {"model", config.at("Model")},
            {"serial", isFile || isBusy(config) ? value() : value(id)},
            {"partNumber", config.at("PartNo")},
            {"firmware", config.at("Version")},
            {"libraryVersion", isFile ? value() : libraryVersion(known.at("family"), libraries)},
            {"channels", config.at("NumChans")},
            {"features", known.at("features")},
            {"state", state},
            {"why", why.empty() ? value() : value(why)}};
}

std::string textOf(const object &device, const char *key)
{
    const value &item = device.at(key);
    return item.is_string() ? visibleText(std::string(item.as_string())) : "";
}

std::string listText(const value &texts)
{
    std::vector<std::string> all;
    for (const value &text : texts.as_array()) all.emplace_back(visibleText(std::string(text.as_string())));
    return fmt::format("{}", fmt::join(all, " "));
}

using Cells = std::array<std::string, 8>;

Cells cellsOf(const object &device)
{
    return {textOf(device, "id"),
            textOf(device, "family"),
            textOf(device, "model"),
            textOf(device, "firmware"),
            textOf(device, "libraryVersion"),
            fmt::format("{}", device.at("channels").to_number<int>()),
            textOf(device, "state"),
            listText(device.at("features"))};
}

void addDevices(fmt::memory_buffer &text, const array &devices)
{
    std::vector<Cells> lines = {
        {"Id", "Family", "Model", "Firmware", "Library", "Inputs", "State", "Features"}};
    for (const value &device : devices) lines.push_back(cellsOf(device.as_object()));
    std::array<size_t, std::tuple_size_v<Cells>> widths{};
    for (const Cells &line : lines)
        for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
    for (const Cells &line : lines) {
        std::string shown;
        for (size_t i = 0; i < line.size(); ++i) shown += fmt::format("{:<{}}  ", line[i], widths[i]);
        shown.resize(shown.find_last_not_of(' ') + 1);
        fmt::format_to(std::back_inserter(text), "{}\n", shown);
    }
    if (devices.empty()) fmt::format_to(std::back_inserter(text), "none found\n");
}

void addLibraries(fmt::memory_buffer &text, const array &libraries)
{
    auto out = std::back_inserter(text);
    fmt::format_to(out, "\nInstrument libraries\n");
    for (const value &item : libraries) {
        const object &library = item.as_object();
        fmt::format_to(out, "  {:<5} {:<13} ", textOf(library, "family"), textOf(library, "file"));
        if (library.at("loaded").as_bool())
            fmt::format_to(out, "{}, version {}\n", textOf(library, "path"), textOf(library, "version"));
        else if (library.at("missing").is_string())
            fmt::format_to(out, "{} lacks {}\n", textOf(library, "path"), textOf(library, "missing"));
        else
            fmt::format_to(out, "not found: {}\n", textOf(library, "why"));
    }
}

std::string table(const array &devices, const array &libraries, bool isRemote)
{
    fmt::memory_buffer text;
    addDevices(text, devices);
    if (!isRemote) addLibraries(text, libraries);
    return fmt::to_string(text);
}

int runDevices(const DevicesOptions &options, const HostOptions &host)
{
    const Session session(host);
    std::vector<std::string> inputs = options.Files;
    inputs.insert(inputs.end(), {host.IniPath, host.SimulationPath});
    checkOutputs(inputs, outputsOf(options.Result), options.Result.Force);
    for (const std::string &file : options.Files) openRecording(file);
    std::string problem;
    if (options.Server.empty())
        problem = findInstruments().Error;
    else
        connectServer(options.Server);
    const value libraries = libraryText(TESSEL_TEXT_LIBRARIES), ids = libraryText(TESSEL_TEXT_DEVICE_IDS);
    array devices;
    for (const value &id : ids.as_array())
        devices.push_back(listedDevice(std::string(id.as_string()), libraries));
    const object all = {{"schema", "tessel.devices/1"}, {"devices", devices}, {"libraries", libraries}};
    writeResult(options.Result.File, options.Result.Json
                                         ? jsonText(all)
                                         : table(devices, libraries.as_array(), !options.Server.empty()));
    if (problem.empty()) return 0;
    error(problem);
    return static_cast<int>(Exit::NoDevice);
}

constexpr const char *devicesFooter =
    R"(An instrument is found through the library of its family, which is looked for in the folders of the
environment variable TESSEL_INSTRUMENT_PATH (absolute, with colons between), and, where that isn't
set, where the system's loader looks. A free instrument is opened, initialised and closed again to
see what it is, which sends it the initial settings. A recording is listed like an instrument.

--sim shows the simulated instruments that come with the program: one with four channels and pulsed
light, or those that a JSON file describes.

States: free; open (by this program); busy (by another one); file (a recording); failed (it can't be
opened or initialised; a warning says why). With --host the instruments are those of another
computer: remote; not served (it has them, but not at this address).

JSON: schema (tessel.devices/1), and
  devices    [{id, family, model, serial, partNumber, firmware, libraryVersion, channels, features,
             state, why (it failed)}]
  libraries  [{family, file, places (where it was looked for), loaded, path, missing (an operation
             that it lacks), why (it isn't loaded), version}]

Examples:
  tessel devices
  tessel devices --sim
  tessel devices --host lab-pc
  tessel devices --sim=lab.json --json | jq -r '.devices[].id')";

} // namespace

Command addDevices(CLI::App &program)
{
    const auto options = std::make_shared<DevicesOptions>();
    CLI::App *command = program.add_subcommand("devices", "List instruments and their libraries");
    command->add_option("RECORDINGS", options->Files, "Recordings (.tgx) to list as well")->type_name("");
    addHostOption(*command, options->Server);
    addOutputOptions(*command, options->Result, "a table");
    command->footer(devicesFooter);
    return {command, [options](const HostOptions &host) { return runDevices(*options, host); }};
}

} // namespace Tessel::Cli
