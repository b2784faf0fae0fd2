#include "commands/import_plan.h"

#include "program/exit_codes.h"
#include "program/units.h"

#include <fmt/format.h>

#include <array>
#include <string_view>
#include <utility>

namespace Tessel::Cli {

namespace {

constexpr uint64_t mostPs = (uint64_t(1) << 63) - 1;
constexpr uint64_t mostSyncs = (uint64_t(1) << 47) - 1; // with 15 bits of dtime a time is a uint64
constexpr uint64_t mostDtime = (1 << 15) - 1;
constexpr double shortestSyncPs = 1e12 / 2147483647, longestSyncPs = 1e18; // of the rates that a header has
constexpr Fraction onePs = {1, 1};

Fraction periodOption(const char *option, const std::string &text)
{
    try {
        return parsePeriodPs(text);
    } catch (const UnitError &unreadable) {
        throw Failure(Exit::Usage, fmt::format("{} {}", option, unreadable.what()));
    }
}

// What a name as "time_ns" says.
Fraction tickOfName(const std::string &name)
{
    static constexpr std::pair<std::string_view, Fraction> units[] = {{"_ps", onePs},
                                                                      {"_ns", {1000, 1}},
                                                                      {"_us", {1'000'000, 1}},
                                                                      {"_ms", {1'000'000'000, 1}},
                                                                      {"_s", {1'000'000'000'000, 1}}};
    for (const auto &[ending, ps] : units)
        if (name.ends_with(ending)) return ps;
    return onePs;
}

void refuseIdle(const std::string &value, std::string_view option, std::string_view why)
{
    if (!value.empty()) throw Failure(Exit::Usage, fmt::format("{}: {}", option, why));
}

void setT2Units(ImportUnits &units, const ImportOptions &options, const EventTable &table)
{
    refuseIdle(options.SyncPeriod, "--sync-period", "T3 alone takes it");
    refuseIdle(options.SyncRate, "--sync-rate", "T3 alone takes it");
    refuseIdle(options.MicrotimeUnit, "--microtime-unit", "T3 alone takes it");
    units.TickPs = options.Tick.empty() ? tickOfName(table.TimeName) : periodOption("--tick", options.Tick);
    // A text may have decimals of the tick.
    const bool isWhole = units.TickPs.isWhole() && !table.Text && table.Times.Type != NumberType::F64 &&
                         table.Times.Type != NumberType::F32;
    constexpr uint64_t coarsest = 1'000'000'000'000;
    units.ResolutionPs = isWhole && units.TickPs.Num <= coarsest ? units.TickPs : onePs;
    if (!options.Resolution.empty()) units.ResolutionPs = periodOption("--resolution", options.Resolution);
    if (!units.ResolutionPs.isWhole() || units.ResolutionPs.Num > coarsest)
        throw Failure(Exit::Usage, "--resolution: whole picoseconds, at most 1s, in T2");
}

void setT3Units(ImportUnits &units, const ImportOptions &options, const EventTable &table)
{
    refuseIdle(options.Tick, "--tick", "times are numbers of syncs in T3: --sync-period");
    if (options.SyncPeriod.empty() == options.SyncRate.empty())
        throw Failure(Exit::Usage, "T3 needs either --sync-period or --sync-rate");
    if (!options.SyncPeriod.empty())
        units.TickPs = periodOption("--sync-period", options.SyncPeriod);
    else
        units.TickPs = periodOption("--sync-rate", options.SyncRate);
    if (units.TickPs.value() < shortestSyncPs || units.TickPs.value() > longestSyncPs)
        throw Failure(Exit::Usage, fmt::format("a sync period of {}: 466ps to 1000000s (a rate up to 2.147GHz)",
                                               periodText(units.TickPs)));
    if (table.HasMicrotimes && options.MicrotimeUnit.empty())
        throw Failure(Exit::Usage,
                      "T3 with microtimes needs --microtime-unit, what their 1 is: 4ps, 25ns/4096");
    units.MicrotimePs =
        options.MicrotimeUnit.empty() ? onePs : periodOption("--microtime-unit", options.MicrotimeUnit);
    units.ResolutionPs = units.MicrotimePs;
    if (!options.Resolution.empty()) units.ResolutionPs = periodOption("--resolution", options.Resolution);
    if (units.ResolutionPs.value() < 0.5 || units.ResolutionPs.value() > 1e12)
        throw Failure(Exit::Usage, fmt::format("a dtime of {}: --resolution from 0.5ps to 1s",
                                               periodText(units.ResolutionPs)));
}

// "key=value" of the line that `unfold` writes.
std::string hintOf(const std::vector<std::string> &comments, const std::string &key)
{
    constexpr std::string_view start = "import: ";
    for (const std::string &comment : comments) {
        if (!comment.starts_with(start)) continue;
        const size_t at = comment.find(" " + key + "=");
        if (at == comment.npos) continue;
        const size_t value = at + key.size() + 2;
        return comment.substr(value, comment.find(' ', value) - value);
    }
    return {};
}

} // namespace

void takeHints(ImportOptions &options, const EventTable &table)
{
    if (!table.Text) return;
    const std::vector<std::string> &comments = table.Text->Comments;
    const auto take = [&](std::string &option, const char *key) {
        if (option.empty()) option = hintOf(comments, key);
    };
    take(options.Mode, "mode");
    if (options.Mode == "t2") {
        if (options.Tick.empty()) take(options.Resolution, "resolution");
    } else if (options.Mode == "t3") {
        if (options.SyncRate.empty()) take(options.SyncPeriod, "sync-period");
        take(options.MicrotimeUnit, "microtime-unit");
    }
    if (options.Sync < 0) take(options.Map, "map");
    if (hintOf(comments, "zero") == "kept") options.KeepsZero = true;
    const std::string inputs = hintOf(comments, "inputs");
    if (options.Inputs == 0 && !inputs.empty() && inputs.size() < 3) options.Inputs = std::atoi(inputs.c_str());
}

ImportUnits unitsOf(const ImportOptions &options, const EventTable &table)
{
    ImportUnits units;
    const bool looksT3 = table.HasMicrotimes || !options.SyncPeriod.empty() || !options.SyncRate.empty();
    const bool isT3 = options.Mode.empty() ? looksT3 : options.Mode == "t3";
    units.MeasMode = isT3 ? 3 : 2;
    if (isT3)
        setT3Units(units, options, table);
    else
        setT2Units(units, options, table);
    if (!options.Sort.empty() && options.Sort != "true")
        units.SortSpanPs = periodOption("--sort", options.Sort);
    return units;
}

Scaling scalingOf(const ImportUnits &units, const EventTable &table)
{
    const auto scaler = [&](const char *what, const char *beyond, const Fraction &tick, const Fraction &unit,
                            uint64_t most) {
        NumberScaler made{.Shown = table.Shown, .What = what, .Beyond = beyond, .MostUnits = most};
        if (!divide(tick, unit, made.UnitsPerTick))
            throw Failure(Exit::Usage, fmt::format("{}s of {} can't be scaled exactly to {}", what,
                                                   periodText(tick), periodText(unit)));
        return made;
    };
    const auto microtimes = [&](const Fraction &unit) {
        return scaler("microtime", "is beyond 32767 dtimes: --resolution takes coarser ones", units.MicrotimePs,
                      unit, mostDtime);
    };
    if (units.MeasMode == 3)
        return {scaler("sync number", "is more than a recording can hold", onePs, onePs,
                       std::min<uint64_t>(mostSyncs, static_cast<uint64_t>(static_cast<double>(mostPs) /
                                                                           units.TickPs.value()))),
                microtimes(units.ResolutionPs)};
    return {scaler("time", "is later than a recording can hold, 106 days", units.TickPs, units.ResolutionPs,
                   mostPs / units.ResolutionPs.Num),
            microtimes(onePs)};
}

ChannelMap mapOf(const ImportOptions &options, const Survey &found)
{
    ChannelMap map =
        options.Map.empty() ? naturalMap(found.Counts, options.Sync) : parseChannelMap(options.Map);
    if (options.Sync >= 0) map.Places[static_cast<size_t>(options.Sync)] = syncPlace;
    if (options.Map == "codes")
        for (uint32_t input = 1; input <= inputsPerFile; ++input)
            if (found.Counts[input] > 0) map.NumInputs = input;
    map.NumInputs = std::max(map.NumInputs, static_cast<uint32_t>(options.Inputs));
    return map;
}

void checkOrder(const ImportOptions &options, const ImportUnits &units, const EventTable &table,
                const Survey &found)
{
    if (found.StepsBack == 0) return;
    const auto text = [&](uint64_t step) {
        if (units.MeasMode == 3) return fmt::format("{} syncs", step);
        return timeText(static_cast<double>(step) * timeUnitPs(units));
    };
    const double largestPs = static_cast<double>(found.LargestStep) * timeUnitPs(units);
    if (options.Sort.empty())
        throw Failure(
            Exit::Failed,
            fmt::format("{}: {} goes back by {} (steps back: {}, largest {}); --sort puts them in order",
                        table.Shown, found.FirstBack, text(found.FirstStep), found.StepsBack,
                        text(found.LargestStep)));
    if (units.SortSpanPs && largestPs > units.SortSpanPs->value())
        throw Failure(Exit::Failed, fmt::format("{}: rows go back by up to {}, beyond --sort {}", table.Shown,
                                                text(found.LargestStep), options.Sort));
}

void setShift(NumberScaler &times, const ImportOptions &options, const ImportUnits &units, const Survey &found)
{
    if (found.Earliest > 0 || options.KeepsZero) return;
    Fraction ticks = onePs; // of a unit of the recording
    if (units.MeasMode == 2) divide(units.ResolutionPs, units.TickPs, ticks);
    if (found.HasFractions)
        times.ShiftUnits = 1;
    else
        times.ShiftTicks = (ticks.Num + ticks.Den - 1) / ticks.Den;
}

double timeUnitPs(const ImportUnits &units)
{
    return units.MeasMode == 3 ? units.TickPs.value() : units.ResolutionPs.value();
}

} // namespace Tessel::Cli
