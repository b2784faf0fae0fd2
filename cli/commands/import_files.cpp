#include "commands/import_files.h"

#include "program/exit_codes.h"
#include "program/session.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

namespace Tessel::Cli {

namespace {

constexpr double picosecondsPerSecond = 1e12;

[[noreturn]] void failOnFile(const ImportFile &file, std::string_view what)
{
    const std::string why = libraryError();
    throw Failure(Exit::Failed,
                  fmt::format("{}: {}{}{}", file.Into.Shown, what, why.empty() ? "" : ": ", visibleText(why)));
}

// Counts per second of the inputs of a file; those that share one are added.
std::vector<double> inputRates(const ChannelMap &map, uint32_t file, uint32_t numInputs, const Survey &found,
                               double seconds)
{
    std::vector<double> rates(numInputs);
    for (const uint32_t channel : channelsIn(map, found, file)) {
        const Place place = map.Places[channel];
        if (!isInput(place)) continue;
        double &rate = rates[inputOf(place) - 1];
        rate = std::min(2e9, rate + static_cast<double>(found.Counts[channel]) / seconds);
    }
    return rates;
}

double syncRate(const ImportUnits &units, const ChannelMap &map, const Survey &found, double seconds)
{
    if (units.MeasMode == 3) return picosecondsPerSecond / units.TickPs.value();
    return std::min(2e9, static_cast<double>(eventsAt(map, found, syncPlace)) / seconds);
}

// Which recorded channels these are, in the header.
std::string commentOf(const ImportOptions &options, const ChannelMap &map, const Survey &found, uint32_t file)
{
    if (!options.Comment.empty()) return options.Comment;
    std::string text = "imported; recorded channels:";
    for (const uint32_t channel : channelsIn(map, found, file))
        text +=
            fmt::format("{} {} = {}", text.ends_with(':') ? "" : ",", channel, placeText(map.Places[channel]));
    return text;
}

tessel_recording *newFile(const ImportFile &file, const ImportUnits &units, double rate,
                          const std::vector<double> &rates, int32_t acqTimeMs, const std::string &comment)
{
    tessel_recording_params params = {};
    params.size = sizeof params;
    params.measMode = units.MeasMode;
    params.numChannels = static_cast<int32_t>(file.NumInputs);
    params.baseResolution = units.MeasMode == 3 ? 1 : units.ResolutionPs.value();
    params.resolution = units.ResolutionPs.value();
    params.syncRate = rate;
    params.acqTime = acqTimeMs;
    params.inputRates = rates.data();
    params.serial = "imported";
    params.comment = comment.c_str();
    const LibraryPath known(file.Work->WorkName);
    tessel_recording *made = tessel_recordingCreate(known.Text.c_str(), &params);
    if (!made) failOnFile(file, "can't be created");
    return made;
}

} // namespace

ImportFiles::~ImportFiles()
{
    for (ImportFile &file : Files) tessel_recordingClose(file.Recording);
}

std::vector<uint32_t> channelsIn(const ChannelMap &map, const Survey &found, uint32_t file)
{
    std::vector<uint32_t> channels;
    for (uint32_t channel = 0; channel < mostChannels; ++channel)
        if (found.Counts[channel] > 0 && isIn(map.Places[channel], file)) channels.push_back(channel);
    return channels;
}

uint64_t eventsAt(const ChannelMap &map, const Survey &found, Place place)
{
    uint64_t events = 0;
    for (uint32_t channel = 0; channel < mostChannels; ++channel)
        if (map.Places[channel] == place) events += found.Counts[channel];
    return events;
}

std::string pathOfFile(const std::string &path, uint32_t file, uint32_t numFiles)
{
    constexpr std::string_view ending = ".tgx";
    if (numFiles == 1 || !path.ends_with(ending)) return path;
    return fmt::format("{}-{}{}", path.substr(0, path.size() - ending.size()), file + 1, ending);
}

void createFiles(ImportFiles &files, const ImportOptions &options, const ImportUnits &units,
                 const Survey &found, uint64_t lastTime)
{
    const uint32_t numFiles = files.Map.numFiles();
    for (uint32_t i = 0; i < numFiles; ++i)
        files.Files.push_back({.Into = newRecording(pathOfFile(options.Path, i, numFiles), options.Force),
                               .Work = {},
                               .Words = files.IsT3 ? Sim::makeT3Words() : Sim::makeT2Words()});
    const double unitPs = timeUnitPs(units);
    const double seconds =
        static_cast<double>(found.Latest - found.Earliest + 1) * unitPs / picosecondsPerSecond;
    const double lastMs = std::ceil(static_cast<double>(lastTime + 1) * unitPs / 1e9);
    const auto acqTimeMs = static_cast<int32_t>(std::min(lastMs, 2e9));
    for (uint32_t i = 0; i < numFiles; ++i) {
        ImportFile &file = files.Files[i];
        const uint32_t inputs = files.Map.NumInputs - std::min(files.Map.NumInputs, i * inputsPerFile);
        file.NumInputs = std::clamp<uint32_t>(inputs, 1, inputsPerFile);
        file.Work = std::make_unique<OutputFile>(file.Into.Path);
        file.Recording = newFile(file, units, syncRate(units, files.Map, found, seconds),
                                 inputRates(files.Map, i, file.NumInputs, found, seconds), acqTimeMs,
                                 commentOf(options, files.Map, found, i));
    }
}

void writeWords(ImportFiles &files)
{
    for (ImportFile &file : files.Files) {
        std::vector<uint32_t> &words = file.Words.Words;
        if (!tessel_recordingWrite(file.Recording, words.data(), words.size()))
            failOnFile(file, "can't be written");
        file.NumRecords += words.size();
        words.clear();
    }
}

void seal(ImportFiles &files)
{
    for (ImportFile &file : files.Files)
        if (!tessel_recordingClose(std::exchange(file.Recording, nullptr)))
            failOnFile(file, "can't be completed");
    for (ImportFile &file : files.Files) {
        dropSideFile(file.Into);
        complete(*file.Work);
    }
}

} // namespace Tessel::Cli
