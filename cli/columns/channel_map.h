// Which recorded channel number becomes what in a recording: an input, the sync, a marker. Beyond 64 inputs
// there are several recordings.
#pragma once

#include "columns/rows.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Cli {

inline constexpr uint32_t inputsPerFile = 64;
inline constexpr uint32_t mostFiles = 32;

// What a channel becomes: a number of an input from 1 on, over all files, or one of these.
using Place = uint16_t;
inline constexpr Place leftOut = 0, syncPlace = 0xFFFF, markerPlace = 0xFF00; // markers: their bits added

struct ChannelMap
{
    std::vector<Place> Places = std::vector<Place>(mostChannels, leftOut);
    uint32_t NumInputs = 0; // the highest
    uint32_t numFiles() const { return NumInputs == 0 ? 1 : (NumInputs - 1) / inputsPerFile + 1; }
};

inline bool isInput(Place place)
{
    return place != leftOut && place < markerPlace;
}

// Of an input: its file, from 0, and its number there, from 1.
inline uint32_t fileOf(Place place)
{
    return (place - 1u) / inputsPerFile;
}

inline uint32_t inputOf(Place place)
{
    return (place - 1u) % inputsPerFile + 1;
}

// Syncs and markers are in all files.
inline bool isIn(Place place, uint32_t file)
{
    return isInput(place) ? fileOf(place) == file : place != leftOut;
}

// "0,8,1,9": inputs 1, 2, 3, 4; "1=1,2=2,5=sync"; "32-95"; "codes": as unfold has them. Throws a usage Failure.
ChannelMap parseChannelMap(const std::string &text);

// By the numbers that occur, without the one that is the sync: they stay, or go up by 1 if there is a 0 among
// them; if there are large ones, they are taken one after the other. Throws Failure if there are too many.
// `counts`: events by number. `sync`: -1: none.
ChannelMap naturalMap(std::span<const uint64_t> counts, int sync);

// "input 3" of its file, "sync", "markers 5" (bits), "left out".
std::string placeText(Place place);

} // namespace Tessel::Cli
