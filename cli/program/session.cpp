// Start and end of the library, opening of recordings. The main thread's.
#include "program/session.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/simulated.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <optional>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tessel::Cli {

namespace {

// The program's own: no log file, the log to the console only if it is to be seen.
std::string ownSettings(const HostOptions &options)
{
    return fmt::format(
        "[Log]\nFile=false\nConsole={0}\nColours={2}\n[LogLevel]\nApi={1}\nDevice={1}\nDataFile={1}\n"
        "[Params]\nBufferSize=8\n",
        options.Verbose || options.LogsMessages, options.Verbose, withColour());
}

[[noreturn]] void refuse(const std::string &path, std::string_view why)
{
    throw Failure(Exit::NoDevice, fmt::format("{}: {}", visibleText(path), why));
}

uint64_t dataBytes(const boost::json::object &header)
{
    return header.at("fileSize").to_number<uint64_t>() - header.at("dataStart").to_number<uint64_t>();
}

// The last of a name stands, as for the library.
std::optional<int64_t> integerTag(const boost::json::object &header, std::string_view name)
{
    std::optional<int64_t> value;
    for (const auto &tag : header.at("tags").as_array())
        if (tag.at("name").as_string() == name && tag.at("value").is_int64())
            value = tag.at("value").as_int64();
    return value;
}

// A recording begins with a count of 0 and an unknown stop reason, which its end overwrites. An empty one that
// was closed keeps the count, but knows why it stopped.
Ending endingOf(const Recording &recording)
{
    constexpr int64_t unknown = -1;
    if (recording.ClaimedRecords > 0)
        return static_cast<uint64_t>(recording.ClaimedRecords) > recording.NumRecords ? Ending::CutShort
                                                                                      : Ending::Closed;
    const bool isOpening =
        recording.ClaimedRecords == 0 && integerTag(recording.Header, "TTResult_StopReason") == unknown;
    return dataBytes(recording.Header) > 0 || isOpening ? Ending::NotClosed : Ending::Closed;
}

// Id and path of a device that was opened by a descriptor, as they would be by its name.
void nameAs(boost::json::object &config, const std::string &path)
{
    const std::string id(config.at("ID").as_string());
    config["ID"] = id.substr(0, id.rfind('@') + 1) + jsonName(std::filesystem::path(path).filename().string());
    config["FileDevicePath"] = jsonName(path);
}

} // namespace

Session::Session(const HostOptions &options)
{
    if (options.Verbose) showLog();
    if (options.Simulated) chooseSimulatedInstruments(options.SimulationPath);
    if (!options.IniPath.empty()) {
        if (!std::filesystem::is_regular_file(options.IniPath))
            throw Failure(Exit::NoDevice,
                          fmt::format("{}: no such settings file", visibleText(options.IniPath)));
        initAPI(LibraryPath(options.IniPath).Text.c_str());
    } else {
        initAPI(MemoryFile(ownSettings(options)).path().c_str());
    }
    if (options.Threads > 0) tessel_setThreads(options.Threads);
}

Session::~Session()
{
    exitAPI();
}

void checkFile(const std::string &path)
{
    std::error_code problem;
    const auto status = std::filesystem::status(path, problem);
    if (!std::filesystem::exists(status)) refuse(path, "no such file");
    if (std::filesystem::is_directory(status)) refuse(path, "a folder, not a recording");
    if (access(path.c_str(), R_OK) != 0) refuse(path, std::strerror(errno));
}

std::string libraryError()
{
    std::string text(static_cast<size_t>(tessel_lastError(nullptr, 0)), '\0');
    tessel_lastError(text.data(), text.size() + 1);
    return text;
}

boost::json::object fileReport(const std::string &path, const std::string &shown)
{
    std::string text(16384, '\0'); // holds any
    if (!tessel_verifyFile(LibraryPath(path).Text.c_str(), text.data(), text.size(), nullptr))
        throw Failure(Exit::Failed, fmt::format("{}: {}", visibleText(shown), visibleText(libraryError())));
    return boost::json::parse(text.c_str()).as_object();
}

boost::json::value libraryText(int32_t which, const std::string &id)
{
    const std::u16string wideId = std::filesystem::path(id).u16string();
    std::vector<char> text(1);
    uint64_t needed = 0;
    while (!tessel_getText(wideId.c_str(), which, text.data(), text.size(), &needed)) {
        if (needed <= text.size()) throw Failure(Exit::Failed, fmt::format("no text {} of a device", which));
        text.resize(needed);
    }
    return boost::json::parse(text.data());
}

boost::json::object deviceConfig()
{
    return libraryText(TESSEL_TEXT_DEVICE).as_object();
}
boost::json::object runDescription()
{
    return libraryText(TESSEL_TEXT_DESCRIPTION).as_object();
}

namespace {

// What Config and the current device say.
void readConfig(Recording &recording)
{
    recording.Description = runDescription();
    recording.Id = recording.Config.at("ID").as_string();
    recording.MeasMode = recording.Config.at("MeasMode").to_number<int64_t>();
    recording.BaseResolutionPs = recording.Config.at("BaseResolution").to_number<double>();
    recording.ResolutionPs = recording.UsedResolutionPs = recording.Config.at("Resolution").to_number<double>();
    recording.NumRows = getNumAllChans(nullptr);
}

// Of a tag in seconds; 0 without it. What a double of seconds adds after the 15th digit wasn't meant.
double picosecondsOf(const boost::json::object &header, std::string_view name)
{
    double seconds = 0;
    for (const auto &tag : header.at("tags").as_array())
        if (tag.at("name").as_string() == name && tag.at("value").is_double())
            seconds = tag.at("value").as_double();
    constexpr double psPerSecond = 1e12;
    return std::stod(fmt::format("{:.15g}", seconds * psPerSecond));
}

// A replay takes the unit of its words in whole picoseconds.
void readResolution(Recording &recording)
{
    const bool isT3 = recording.MeasMode == 3;
    const double made =
        picosecondsOf(recording.Header, isT3 ? "MeasDesc_Resolution" : "MeasDesc_GlobalResolution");
    if (made > 0) recording.ResolutionPs = made;
    if (made > 0 && !isT3) recording.UsedResolutionPs = std::round(made);
}

// A replay of T3 takes the period of whole picoseconds that is nearest to a rate of whole hertz; of a rate
// below one, the period without its fraction.
void readPeriods(Recording &recording)
{
    if (recording.MeasMode != 3) return;
    constexpr double psPerSecond = 1e12;
    recording.MadePeriodPs = picosecondsOf(recording.Header, "MeasDesc_GlobalResolution");
    const int64_t rate = integerTag(recording.Header, "TTResult_SyncRate").value_or(0);
    recording.UsedPeriodPs =
        rate > 0 ? std::nearbyint(psPerSecond / static_cast<double>(rate)) : std::floor(recording.MadePeriodPs);
}

} // namespace

// The tags of the inputs with this name; an input without one has 0.
std::vector<double> inputTags(const Recording &recording, std::string_view name)
{
    std::vector<double> values(recording.Config.at("ChansCfg").as_array().size(), 0);
    for (const auto &tag : recording.Header.at("tags").as_array()) {
        const auto input = static_cast<size_t>(tag.at("idx").to_number<int64_t>());
        if (tag.at("name").as_string() == name && input < values.size() && tag.at("value").is_number())
            values[input] = tag.at("value").to_number<double>();
    }
    return values;
}

// What the inputs counted, and how long they were dead after an event. The dead time of a device that was
// opened from a file counts as off; files of the SV40 family may hold a code, which is none.
void readInputs(Recording &recording)
{
    constexpr double shortestPs = 800;
    for (const double rate : inputTags(recording, "TTResult_InputRate"))
        recording.Rates.Inputs.push_back(static_cast<int32_t>(rate));
    for (const double ps : inputTags(recording, "HWInpChan_TdCode"))
        recording.DeadTimesPs.push_back(ps >= shortestPs ? ps : 0);
}

Recording openRecording(const std::string &path)
{
    checkFile(path);
    Recording recording;
    recording.Path = path;
    recording.Known = std::make_shared<const LibraryPath>(path);
    auto header = headerOf(*recording.Known);
    if (!header) refuse(path, "not a recording (its header can't be read)");
    recording.Header = std::move(*header);
    if (!tessel_openFile(recording.Known->Text.c_str(), nullptr, 0))
        refuse(path, "the file can't be opened as a device");
    recording.Config = deviceConfig();
    if (!recording.Known->isName()) nameAs(recording.Config, path);
    readConfig(recording);
    const double syncRate = recording.Description.at("AveSyncRate").to_number<double>();
    if (syncRate > 0) recording.SyncPeriodPs = 1e12 / syncRate;
    recording.NumRecords = dataBytes(recording.Header) / sizeof(uint32_t);
    recording.ClaimedRecords = integerTag(recording.Header, "TTResult_NumberOfRecords").value_or(-1);
    recording.Ending = endingOf(recording);
    readInputs(recording);
    readResolution(recording);
    readPeriods(recording);
    return recording;
}

Recording liveRecording(int32_t runForMs)
{
    Recording recording;
    recording.RunForMs = runForMs;
    recording.Config = deviceConfig();
    readConfig(recording);
    recording.Path = recording.Id;
    CountRates &rates = recording.Rates;
    rates.Inputs.resize(recording.Config.at("NumChans").to_number<size_t>());
    getCountRates(&rates.Sync, rates.Inputs.data());
    if (rates.Sync > 0) recording.SyncPeriodPs = 1e12 / rates.Sync;
    for (const auto &channel : recording.Config.at("ChansCfg").as_array()) {
        const auto *dead = channel.as_object().if_contains("DeadTime"); // not every family has one
        recording.DeadTimesPs.push_back(dead && dead->is_number() ? dead->to_number<double>() : 0);
    }
    return recording;
}

std::string modeText(int64_t measMode)
{
    return measMode == 0 ? "histogram" : fmt::format("T{}", measMode);
}

std::string_view endingText(Ending ending)
{
    switch (ending) {
    case Ending::Closed: break;
    case Ending::NotClosed: return "not closed";
    case Ending::CutShort: return "cut short";
    }
    return "closed";
}

std::string endingFault(const Recording &recording)
{
    switch (recording.Ending) {
    case Ending::Closed: break;
    case Ending::NotClosed:
        return fmt::format("the recording was not closed: its header counts no records, the file holds {}",
                           recording.NumRecords);
    case Ending::CutShort:
        return fmt::format("the file is cut short: its header says {}, it holds {}",
                           counted(static_cast<uint64_t>(recording.ClaimedRecords), "record"),
                           recording.NumRecords);
    }
    return {};
}

namespace {

// Null for the sync and the inputs.
const MadeRow *madeRow(const Recording &recording, int64_t row)
{
    const int64_t index = row - (recording.NumRows - static_cast<int64_t>(recording.Made.size()));
    return index < 0 ? nullptr : &recording.Made[static_cast<size_t>(index)];
}

} // namespace

std::string rowName(const Recording &recording, int64_t row)
{
    if (row == 0) return "Sync";
    if (const MadeRow *made = madeRow(recording, row)) return made->Name;
    const auto &channels = recording.Config.at("ChansCfg").as_array();
    const auto index = static_cast<size_t>(row - 1);
    if (index < channels.size() && channels[index].at("Name").is_string())
        if (const auto &name = channels[index].at("Name").as_string(); !name.empty())
            return visibleText({name.data(), name.size()});
    return fmt::format("Channel {}", row);
}

std::string columnName(const Recording &recording, int64_t row)
{
    if (const MadeRow *made = madeRow(recording, row)) return made->Column;
    return row == 0 ? "sync" : fmt::format("ch{}", row);
}

} // namespace Tessel::Cli
