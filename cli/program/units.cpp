// Reading and writing of quantities with units. Pure functions.
#include "program/units.h"

#include "program/visible_text.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <span>

namespace Tessel::Cli {

namespace {

struct Unit
{
    std::string_view Name;
    double Factor;
};

// The first name of a size is the one that is written.
constexpr Unit timeUnits[] = {{"ps", 1},   {"ns", 1e3}, {"us", 1e6},   {"µs", 1e6},
                              {"ms", 1e9}, {"s", 1e12}, {"min", 6e13}, {"h", 3.6e15}};
constexpr Unit rateUnits[] = {{"Hz", 1},  {"kHz", 1e3},  {"MHz", 1e6},  {"GHz", 1e9},
                              {"cps", 1}, {"kcps", 1e3}, {"Mcps", 1e6}, {"Gcps", 1e9}};
constexpr Unit voltageUnits[] = {{"uV", 1e-3}, {"µV", 1e-3}, {"mV", 1}, {"V", 1e3}};
constexpr Unit noUnits[] = {{"", 1}};
constexpr Unit countUnits[] = {{"", 1}, {"k", 1e3}, {"M", 1e6}, {"G", 1e9}};
constexpr Unit byteUnits[] = {{"B", 1}, {"kB", 1e3}, {"MB", 1e6}, {"GB", 1e9}, {"TB", 1e12}};

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

[[noreturn]] void fail(std::string_view whole, size_t at, std::string_view what)
{
    throw UnitError(whole, at, std::string(what));
}

const Unit *find(std::span<const Unit> units, std::string_view name)
{
    for (const Unit &unit : units)
        if (unit.Name == name) return &unit;
    return nullptr;
}

std::string names(std::span<const Unit> units)
{
    if (units.size() == 1 && units.front().Name.empty()) return "none";
    std::string text;
    for (const Unit &unit : units)
        if (!unit.Name.empty()) text += (text.empty() ? "" : ", ") + std::string(unit.Name);
    return text;
}

// Reads whole[begin, end); positions in messages count from the start of `whole`.
double parseUnsigned(std::string_view whole, size_t begin, size_t end, std::span<const Unit> units,
                     std::string_view defaultUnit)
{
    while (begin < end && isBlank(whole[begin])) ++begin;
    while (end > begin && isBlank(whole[end - 1])) --end;
    if (begin == end) fail(whole, begin, "a number is missing");
    if (whole[begin] == '-') fail(whole, begin, "a negative value");
    // from_chars would also take "inf" and "nan".
    if (!(whole[begin] >= '0' && whole[begin] <= '9') && whole[begin] != '.')
        fail(whole, begin, "a number is expected");
    double value = 0;
    const auto [stop, error] = std::from_chars(whole.data() + begin, whole.data() + end, value);
    if (error == std::errc::result_out_of_range) fail(whole, begin, "a number out of range");
    if (error != std::errc()) fail(whole, begin, "a number is expected");
    size_t unitAt = static_cast<size_t>(stop - whole.data());
    while (unitAt < end && isBlank(whole[unitAt])) ++unitAt;
    const std::string_view name = unitAt == end ? defaultUnit : whole.substr(unitAt, end - unitAt);
    const Unit *unit = find(units, name);
    if (!unit) fail(whole, unitAt, fmt::format("unknown unit \"{}\" (known: {})", name, names(units)));
    const double result = value * unit->Factor;
    if (!std::isfinite(result)) fail(whole, begin, "a number out of range");
    return result;
}

std::vector<double> parseList(std::string_view text, std::span<const Unit> units, std::string_view defaultUnit)
{
    std::vector<double> values;
    for (size_t begin = 0;;) {
        const size_t comma = std::min(text.find(',', begin), text.size());
        values.push_back(parseUnsigned(text, begin, comma, units, defaultUnit));
        if (comma == text.size()) return values;
        begin = comma + 1;
    }
}

struct Scale
{
    double Factor;
    std::string_view Name;
};

std::string scaled(double value, std::span<const Scale> scales)
{
    const Scale *best = &scales.front();
    for (const Scale &scale : scales)
        if (std::abs(value) >= scale.Factor * 0.99995) best = &scale;
    const double number = value / best->Factor;
    const bool isLarge = std::abs(number) >= 1e4 && std::abs(number) < 1e9; // beyond the last unit
    return fmt::format("{}{}{}", isLarge ? fmt::format("{:.0f}", number) : fmt::format("{:.4g}", number),
                       best->Name.empty() ? "" : " ", best->Name);
}

} // namespace

UnitError::UnitError(std::string_view whole, size_t at, const std::string &reason)
    : std::runtime_error(
          fmt::format("\"{}\": {} at character {}", visibleText(whole), visibleText(reason), at + 1)),
      Reason(reason),
      At(at)
{
}

double parseTimePs(std::string_view text, std::string_view defaultUnit)
{
    return parseUnsigned(text, 0, text.size(), timeUnits, defaultUnit);
}

double parseRateHz(std::string_view text, std::string_view defaultUnit)
{
    return parseUnsigned(text, 0, text.size(), rateUnits, defaultUnit);
}

std::vector<double> parseTimesPs(std::string_view text, std::string_view defaultUnit)
{
    return parseList(text, timeUnits, defaultUnit);
}

std::vector<double> parseRatesHz(std::string_view text, std::string_view defaultUnit)
{
    return parseList(text, rateUnits, defaultUnit);
}

double parseCount(std::string_view text)
{
    return parseUnsigned(text, 0, text.size(), countUnits, "");
}

double parseBytes(std::string_view text)
{
    return parseUnsigned(text, 0, text.size(), byteUnits, "B");
}

double parseQuantity(std::string_view text, std::string_view unit)
{
    std::span<const Unit> units = timeUnits;
    if (unit.empty()) units = noUnits;
    if (find(voltageUnits, unit)) units = voltageUnits;
    size_t begin = 0;
    while (begin < text.size() && isBlank(text[begin])) ++begin;
    const bool hasSign = begin < text.size() && (text[begin] == '-' || text[begin] == '+');
    const double size =
        parseUnsigned(text, begin + hasSign, text.size(), units, unit) / find(units, unit)->Factor;
    return hasSign && text[begin] == '-' ? -size : size;
}

std::string timeText(double ps)
{
    static constexpr Scale scales[] = {{1, "ps"}, {1e3, "ns"}, {1e6, "µs"}, {1e9, "ms"}, {1e12, "s"}};
    return scaled(ps, scales);
}

std::string rateText(double hz)
{
    static constexpr Scale scales[] = {{1, "Hz"}, {1e3, "kHz"}, {1e6, "MHz"}, {1e9, "GHz"}};
    return scaled(hz, scales);
}

std::string countText(double count)
{
    static constexpr Scale scales[] = {{1, ""}, {1e3, "k"}, {1e6, "M"}, {1e9, "G"}};
    return scaled(count, scales);
}

std::string counted(uint64_t count, std::string_view noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string countRateText(double cps)
{
    static constexpr Scale scales[] = {{1, "cps"}, {1e3, "kcps"}, {1e6, "Mcps"}, {1e9, "Gcps"}};
    return scaled(cps, scales);
}

std::string byteText(double bytes)
{
    static constexpr Scale scales[] = {{1, "B"}, {1e3, "kB"}, {1e6, "MB"}, {1e9, "GB"}};
    return scaled(bytes, scales);
}

TimeAxis timeAxis(double rangePs)
{
    if (rangePs < 2e3) return {1, "ps"};
    if (rangePs < 2e6) return {1e-3, "ns"};
    if (rangePs < 2e9) return {1e-6, "µs"};
    if (rangePs < 2e12) return {1e-9, "ms"};
    return {1e-12, "s"};
}

} // namespace Tessel::Cli
