// The recordings of an import: one, or several of 64 inputs each. They are there when they are whole.
#pragma once

#include "columns/channel_map.h"
#include "commands/import_plan.h"
#include "program/new_recording.h"
#include "program/output_file.h"
#include "sim/words.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct tessel_recording;

namespace Tessel::Cli {

struct ImportFile
{
    NewRecording Into;
    std::unique_ptr<OutputFile> Work;
    tessel_recording *Recording = nullptr;
    uint32_t NumInputs = 0;
    Sim::WordWriter Words;
    uint64_t NumRecords = 0;
};

struct ImportFiles
{
    ImportFiles() = default;
    ~ImportFiles(); // without `seal` there are none
    ImportFiles(const ImportFiles &) = delete;
    ImportFiles &operator=(const ImportFiles &) = delete;

    std::vector<ImportFile> Files;
    bool IsT3 = false;
    ChannelMap Map;
};

// The recorded channels whose events are in a file, upwards.
std::vector<uint32_t> channelsIn(const ChannelMap &map, const Survey &found, uint32_t file);

// How many events go there.
uint64_t eventsAt(const ChannelMap &map, const Survey &found, Place place);

// "OUT-2.tgx" for the second of several.
std::string pathOfFile(const std::string &path, uint32_t file, uint32_t numFiles);

// Checks all places before the first is taken. Throws Failure.
void createFiles(ImportFiles &files, const ImportOptions &options, const ImportUnits &units,
                 const Survey &found, uint64_t lastTime);

// To the files whose channel it is.
inline void addEvent(ImportFiles &files, uint64_t time, uint32_t channel, uint32_t dtime)
{
    const Place place = files.Map.Places[channel];
    if (place == leftOut) return;
    if (isInput(place)) {
        const uint32_t input = inputOf(place) - 1; // of the words
        Sim::WordWriter &words = files.Files[fileOf(place)].Words;
        if (files.IsT3)
            Sim::addT3Photon(words, input, time, dtime);
        else
            Sim::addT2Photon(words, input, time);
        return;
    }
    for (ImportFile &file : files.Files) {
        if (place != syncPlace)
            Sim::addMarker(file.Words, place - markerPlace, time);
        else if (!files.IsT3)
            Sim::addT2Sync(file.Words, time);
    }
}

// Throw Failure if a file takes no more.
void writeWords(ImportFiles &files);
void seal(ImportFiles &files);

} // namespace Tessel::Cli
