#include "columns/channel_map.h"

#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace Tessel::Cli {

namespace {

constexpr uint32_t mostInputs = inputsPerFile * mostFiles;
constexpr uint32_t firstMarker = 128; // the code of a marker is this and its bits
constexpr uint32_t mostMarkerBits = 15;
constexpr uint32_t positionalChannels = 16 * inputsPerFile; // beyond, numbers are taken one after the other

[[noreturn]] void refuseMap(std::string_view entry, const std::string &why)
{
    throw Failure(Exit::Usage, fmt::format("--map {}: {}", visibleText(entry), why));
}

bool readWhole(std::string_view text, uint32_t &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

struct Range
{
    uint32_t First = 0, Last = 0;
};

Range readRange(std::string_view text)
{
    Range range;
    const size_t dash = text.find('-');
    const bool isRead = readWhole(text.substr(0, dash), range.First) &&
                        (dash == text.npos || readWhole(text.substr(dash + 1), range.Last));
    if (dash == text.npos) range.Last = range.First;
    if (!isRead || range.Last < range.First || range.Last >= mostChannels)
        refuseMap(text,
                  fmt::format("a number from 0 to {} or a range is expected, as in 0-63", mostChannels - 1));
    return range;
}

void putInputs(ChannelMap &map, const Range &range, uint32_t input, std::string_view entry)
{
    if (input < 1 || input + (range.Last - range.First) > mostInputs)
        refuseMap(entry, fmt::format("inputs are 1 to 64, and {} in all files", mostInputs));
    for (uint32_t channel = range.First; channel <= range.Last; ++channel, ++input) {
        if (map.Places[channel] != leftOut) refuseMap(entry, fmt::format("channel {} twice", channel));
        map.Places[channel] = static_cast<Place>(input);
        map.NumInputs = std::max(map.NumInputs, input);
    }
}

void readEntry(ChannelMap &map, std::string_view entry)
{
    const size_t equals = entry.find('=');
    const Range range = readRange(entry.substr(0, equals));
    if (equals == entry.npos) return putInputs(map, range, map.NumInputs + 1, entry);
    const std::string_view target = entry.substr(equals + 1);
    uint32_t number = 0;
    if (readWhole(target, number)) return putInputs(map, range, number, entry);
    if (target == "sync") {
        for (uint32_t channel = range.First; channel <= range.Last; ++channel) map.Places[channel] = syncPlace;
        return;
    }
    const bool isMarker = target.starts_with("marker") && readWhole(target.substr(6), number);
    if (!isMarker || number < 1 || number > 4) refuseMap(entry, "=1 to =64, =sync or =marker1 to =marker4");
    for (uint32_t channel = range.First; channel <= range.Last; ++channel)
        map.Places[channel] = static_cast<Place>(markerPlace + (1u << (number - 1)));
}

ChannelMap mapOfCodes()
{
    ChannelMap map;
    map.Places[0] = syncPlace;
    for (uint32_t input = 1; input <= inputsPerFile; ++input) map.Places[input] = static_cast<Place>(input);
    for (uint32_t bits = 1; bits <= mostMarkerBits; ++bits)
        map.Places[firstMarker + bits] = static_cast<Place>(markerPlace + bits);
    return map; // its inputs are those that occur
}

} // namespace

ChannelMap parseChannelMap(const std::string &text)
{
    if (text == "codes") return mapOfCodes();
    ChannelMap map;
    const std::string_view whole = text;
    for (size_t at = 0; at <= whole.size();) {
        const size_t end = std::min(whole.find(',', at), whole.size());
        readEntry(map, whole.substr(at, end - at));
        at = end + 1;
    }
    return map;
}

ChannelMap naturalMap(std::span<const uint64_t> counts, int sync)
{
    const auto occurs = [&](uint32_t channel) {
        return counts[channel] > 0 && channel != static_cast<uint32_t>(sync);
    };
    uint32_t first = mostChannels, last = 0, number = 0;
    for (uint32_t channel = 0; channel < counts.size(); ++channel) {
        if (!occurs(channel)) continue;
        first = std::min(first, channel);
        last = channel;
        ++number;
    }
    ChannelMap map;
    const uint32_t up = first == 0 ? 1 : 0;
    const bool isPositional = last < positionalChannels;
    if (number > mostInputs)
        throw Failure(Exit::Failed,
                      fmt::format("{} channels; {} are taken at once: choose by --map", number, mostInputs));
    uint32_t next = 1;
    for (uint32_t channel = 0; channel < counts.size() && number > 0; ++channel) {
        if (!occurs(channel)) continue;
        const uint32_t input = isPositional ? channel + up : next++;
        map.Places[channel] = static_cast<Place>(input);
        map.NumInputs = std::max(map.NumInputs, input);
    }
    return map;
}

std::string placeText(Place place)
{
    if (place == leftOut) return "left out";
    if (place == syncPlace) return "sync";
    if (place >= markerPlace) return fmt::format("markers {}", place - markerPlace);
    return fmt::format("input {}", inputOf(place));
}

} // namespace Tessel::Cli
