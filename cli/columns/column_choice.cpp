#include "columns/column_choice.h"

#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

namespace Tessel::Cli {

namespace {

// Names by which a column is found, in small letters.
constexpr std::array<std::string_view, 13> timeNames = {
    "time",       "times", "time_ps", "timestamp", "timestamps", "t",       "macrotime",
    "macrotimes", "sync",  "nsync",   "syncs",     "timetag",    "time_tag"};
constexpr std::array<std::string_view, 6> channelNames = {"channel",  "channels",  "ch",
                                                          "detector", "detectors", "input"};
constexpr std::array<std::string_view, 6> microtimeNames = {"microtime", "microtimes", "dtime",
                                                            "dtimes",    "nanotime",   "nanotimes"};

// "time_ns" as "time".
std::string withoutUnit(const std::string &name)
{
    for (const std::string_view unit : {"_ps", "_ns", "_us", "_ms", "_s"})
        if (name.ends_with(unit)) return name.substr(0, name.size() - unit.size());
    return name;
}

std::string offered(const ColumnOffer &offer)
{
    if (offer.Names.empty()) return fmt::format("it has {}, without names", offer.Count);
    std::vector<std::string> shown;
    for (const std::string &name : offer.Names) shown.push_back(visibleText(name));
    return fmt::format("it has {}", fmt::join(shown, ", "));
}

// The column that an option names, from 0.
size_t namedColumn(const ColumnOffer &offer, std::string_view option, const std::string &wanted)
{
    const auto name = std::ranges::find(offer.Names, wanted);
    if (name != offer.Names.end()) return static_cast<size_t>(name - offer.Names.begin());
    size_t number = 0;
    const auto [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), number);
    const bool isNumber = error == std::errc() && end == wanted.data() + wanted.size();
    if (isNumber && number >= 1 && number <= offer.Count) return number - 1;
    throw Failure(Exit::Usage, fmt::format("{} {}: no such column of {}: {}", option, visibleText(wanted),
                                           offer.Shown, offered(offer)));
}

std::optional<size_t> knownColumn(const ColumnOffer &offer, std::span<const std::string_view> known)
{
    for (size_t i = 0; i < offer.Names.size(); ++i) {
        const std::string name = inSmallLetters(offer.Names[i]);
        if (std::ranges::find(known, name) != known.end()) return i;
        if (std::ranges::find(known, withoutUnit(name)) != known.end()) return i;
    }
    return std::nullopt;
}

std::string columnText(const ColumnOffer &offer, size_t column)
{
    // A line of names may be shorter than the others.
    const bool hasName = column < offer.Names.size() && !offer.Names[column].empty();
    return !hasName ? fmt::format("column {}", column + 1) : visibleText(offer.Names[column]);
}

} // namespace

TextColumns chosenColumns(const TableOptions &options, const ColumnOffer &offer)
{
    TextColumns chosen;
    const auto time = knownColumn(offer, timeNames);
    chosen.Channel = knownColumn(offer, channelNames);
    chosen.Microtime = knownColumn(offer, microtimeNames);
    if (!time && !chosen.Channel && !chosen.Microtime && offer.Count > 1) chosen.Channel = 1;
    chosen.Time = time.value_or(0);
    if (!options.Times.empty()) chosen.Time = namedColumn(offer, "--times", options.Times);
    if (!options.Channels.empty()) chosen.Channel = namedColumn(offer, "--channels", options.Channels);
    if (!options.Microtimes.empty()) chosen.Microtime = namedColumn(offer, "--microtimes", options.Microtimes);
    if (chosen.Channel == chosen.Time) chosen.Channel.reset();
    if (chosen.Channel == chosen.Microtime && options.Channels.empty()) chosen.Channel.reset();
    return chosen;
}

std::string takenText(const ColumnOffer &offer, const TextColumns &columns)
{
    std::string text = "times: " + columnText(offer, columns.Time);
    if (columns.Channel) text += ", channels: " + columnText(offer, *columns.Channel);
    if (columns.Microtime) text += ", microtimes: " + columnText(offer, *columns.Microtime);
    return text;
}

std::string inSmallLetters(std::string text)
{
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace Tessel::Cli
