#include "commands/import_report.h"

#include "program/console.h"
#include "program/output.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr const char *importSchema = "tessel.import/1";

uint64_t leftOutEvents(const Imported &imported)
{
    return eventsAt(imported.Files.Map, imported.Found, leftOut);
}

double timeRoundingPs(const Imported &imported)
{
    return largestRounding(imported.Scaling.Times) * timeUnitPs(imported.Units);
}

double largestStepPs(const Imported &imported)
{
    return static_cast<double>(imported.Found.LargestStep) * timeUnitPs(imported.Units);
}

void remarkOnRounding(std::vector<std::string> &remarks, const Imported &imported)
{
    const Fraction &unit = imported.Units.ResolutionPs;
    const auto remark = [&](const char *what, double roundingPs) {
        if (roundingPs > 0)
            remarks.push_back(fmt::format("{} were rounded to units of {}, by at most {:.3g} ps", what,
                                          periodText(unit), roundingPs));
    };
    remark("times", timeRoundingPs(imported));
    remark("microtimes", largestRounding(imported.Scaling.Microtimes) * unit.value());
}

// By how much all events are later; empty: they aren't.
std::string shiftText(const Imported &imported)
{
    const NumberScaler &times = imported.Scaling.Times;
    const char *tick = imported.Units.MeasMode == 3 ? "sync" : "tick";
    if (times.ShiftUnits > 0) return periodText(imported.Units.ResolutionPs);
    if (times.ShiftTicks == 0) return {};
    return fmt::format("{} {}{} of {}", times.ShiftTicks, tick, times.ShiftTicks > 1 ? "s" : "",
                       periodText(imported.Units.TickPs));
}

void remarkOnOrigin(std::vector<std::string> &remarks, const Imported &imported)
{
    const char *tick = imported.Units.MeasMode == 3 ? "sync" : "tick";
    if (const uint64_t ticks = imported.Scaling.Times.OriginTicks; ticks > 0)
        remarks.push_back(fmt::format("times count from the first row: {} {}s of {} were taken off", ticks,
                                      tick, periodText(imported.Units.TickPs)));
    if (const std::string shift = shiftText(imported); !shift.empty())
        remarks.push_back(
            "the first event was at 0, which some measurements take for no time: all are later by " + shift);
}

std::vector<std::string> remarksOn(const Imported &imported)
{
    std::vector<std::string> remarks;
    remarkOnRounding(remarks, imported);
    remarkOnOrigin(remarks, imported);
    if (imported.Found.StepsBack > 0)
        remarks.push_back(fmt::format("sorted (steps back: {}, largest {})", imported.Found.StepsBack,
                                      timeText(largestStepPs(imported))));
    if (imported.Units.MeasMode == 3 && !imported.Table.HasMicrotimes)
        remarks.push_back("there are no microtimes: all dtimes are 0");
    if (const uint64_t events = leftOutEvents(imported); events > 0)
        remarks.push_back(fmt::format("{} events of channels that --map doesn't name were left out", events));
    return remarks;
}

boost::json::array channelEntries(const Imported &imported, uint32_t file)
{
    boost::json::array channels;
    for (const uint32_t channel : channelsIn(imported.Files.Map, imported.Found, file)) {
        const Place place = imported.Files.Map.Places[channel];
        boost::json::value input = nullptr;
        if (isInput(place)) input = inputOf(place);
        channels.push_back({{"recorded", channel},
                            {"name", placeText(place)},
                            {"input", std::move(input)},
                            {"events", imported.Found.Counts[channel]}});
    }
    return channels;
}

boost::json::array filesJson(const Imported &imported)
{
    boost::json::array files;
    for (uint32_t i = 0; i < imported.Files.Files.size(); ++i) {
        const ImportFile &file = imported.Files.Files[i];
        files.push_back({{"file", jsonName(file.Into.Path)},
                         {"inputs", file.NumInputs},
                         {"records", file.NumRecords},
                         {"channels", channelEntries(imported, i)}});
    }
    return files;
}

// "channels 64 to 127 are inputs 1 to 64", or one by one.
std::string channelsText(const Imported &imported, uint32_t file)
{
    const std::vector<Place> &places = imported.Files.Map.Places;
    const std::vector<uint32_t> channels = channelsIn(imported.Files.Map, imported.Found, file);
    if (channels.empty()) return "no events";
    const uint32_t first = channels.front(), last = channels.back();
    const bool isRegular = std::ranges::all_of(channels, [&](uint32_t channel) {
        return isInput(places[channel]) && places[channel] - channel == places[first] - first;
    });
    constexpr size_t mostListed = 4;
    if (isRegular && channels.size() > mostListed)
        return fmt::format("channels {} to {} are inputs {} to {}", first, last, inputOf(places[first]),
                           inputOf(places[last]));
    std::string text = "channel ";
    for (const uint32_t channel : channels)
        text += fmt::format("{}{} is {}", channel == first ? "" : ", ", channel, placeText(places[channel]));
    return text;
}

std::string unitsText(const ImportUnits &units)
{
    const std::string resolution = periodText(units.ResolutionPs);
    if (units.MeasMode == 2) return "T2, times in units of " + resolution;
    return fmt::format("T3, sync period {}, dtimes of {}", periodText(units.TickPs), resolution);
}

} // namespace

boost::json::object importJson(const Imported &imported)
{
    const ImportUnits &units = imported.Units;
    const NumberScaler &times = imported.Scaling.Times;
    const std::vector<std::string> remarks = remarksOn(imported);
    return {{"schema", importSchema},
            {"mode", units.MeasMode == 3 ? "T3" : "T2"},
            {"events", imported.Found.Events - leftOutEvents(imported)},
            {"leftOut", leftOutEvents(imported)},
            {"files", filesJson(imported)},
            {"tick", periodText(units.TickPs)},
            {"resolution", periodText(units.ResolutionPs)},
            {"largestRoundingPs", jsonNumber(timeRoundingPs(imported))},
            {"originTicks", times.OriginTicks},
            {"shiftTicks", times.ShiftTicks},
            {"shiftUnits", times.ShiftUnits},
            {"rowsBack", imported.Found.StepsBack},
            {"largestStepBackPs", jsonNumber(largestStepPs(imported))},
            {"notes", boost::json::array(remarks.begin(), remarks.end())}};
}

void noteImport(const Imported &imported)
{
    if (!imported.Table.Taken.empty()) note(fmt::format("{}: {}", imported.Table.Shown, imported.Table.Taken));
    for (uint32_t i = 0; i < imported.Files.Files.size(); ++i)
        note(fmt::format("{}: {}, {}", imported.Files.Files[i].Into.Shown, unitsText(imported.Units),
                         channelsText(imported, i)));
    for (const std::string &text : remarksOn(imported)) note(text);
    const uint64_t events = imported.Found.Events - leftOutEvents(imported);
    note(fmt::format("{} events in {:.2f} s, {} events/s", events, imported.Seconds,
                     countText(static_cast<double>(events) / std::max(imported.Seconds, 1e-9))));
}

} // namespace Tessel::Cli
