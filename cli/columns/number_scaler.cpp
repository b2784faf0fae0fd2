#include "columns/number_scaler.h"

#include "program/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

[[noreturn]] void refuseRow(const NumberScaler &scaler, const Rows &rows, size_t row, const std::string &why)
{
    throw Failure(Exit::Failed,
                  fmt::format("{}: {}: {} {}", scaler.Shown, placeOf(rows, row), scaler.What, why));
}

// What a number of this power counts in a tick: 10^3 with three decimals. 0: it doesn't fit.
uint64_t numbersPerTick(uint8_t power)
{
    if (power >= binaryPower) return uint64_t(1) << (power - binaryPower);
    uint64_t count = 1;
    for (int i = 0; i < power; ++i)
        if (__builtin_mul_overflow(count, uint64_t(10), &count)) return 0;
    return count;
}

// Nothing: the fraction doesn't fit.
std::optional<TimeScale> scaleOf(const NumberScaler &scaler, uint8_t power)
{
    Fraction perNumber = scaler.UnitsPerTick;
    const bool isBinary = power >= binaryPower;
    for (int i = isBinary ? binaryPower : 0; i < power; ++i)
        if (!reduce(perNumber.Num, Wide(perNumber.Den) * (isBinary ? 2 : 10), perNumber)) return std::nullopt;
    return makeTimeScale(perNumber, scaler.MostUnits);
}

TimeScale &scaleAt(NumberScaler &scaler, uint8_t power, const Rows &rows, size_t row)
{
    auto &scale = scaler.Scales[power];
    if (!scale) scale = scaleOf(scaler, power);
    if (!scale) refuseRow(scaler, rows, row, "has more decimals than can be scaled exactly");
    return *scale;
}

// Origin and shift in numbers of a power.
struct Offsets
{
    uint64_t Origin = 0, Shift = 0;
};

Offsets offsetsAt(const NumberScaler &scaler, uint8_t power, const Rows &rows, size_t row)
{
    Offsets offsets;
    if (scaler.OriginTicks == 0 && scaler.ShiftTicks == 0) return offsets;
    const uint64_t count = numbersPerTick(power);
    if (count == 0 || __builtin_mul_overflow(scaler.OriginTicks, count, &offsets.Origin) ||
        __builtin_mul_overflow(scaler.ShiftTicks, count, &offsets.Shift))
        refuseRow(scaler, rows, row, "has more decimals than can be scaled exactly");
    return offsets;
}

uint64_t scaled(const NumberScaler &scaler, TimeScale &scale, uint64_t number, const Offsets &offsets,
                const Rows &rows, size_t row)
{
    if (number < offsets.Origin)
        refuseRow(scaler, rows, row, fmt::format("{} is before the first row", number));
    uint64_t shifted = 0;
    if (__builtin_add_overflow(number - offsets.Origin, offsets.Shift, &shifted) || shifted > scale.MostNumber)
        refuseRow(scaler, rows, row, fmt::format("{} {}", number, scaler.Beyond));
    return toUnits(scale, shifted) + scaler.ShiftUnits;
}

} // namespace

void scale(NumberScaler &scaler, const Numbers &numbers, const Rows &rows, std::vector<uint64_t> &units)
{
    units.resize(rows.Count);
    if (numbers.AreWhole) {
        TimeScale scale = scaleAt(scaler, 0, rows, 0);
        const Offsets offsets{scaler.OriginTicks, scaler.ShiftTicks};
        for (size_t i = 0; i < rows.Count; ++i)
            units[i] = scaled(scaler, scale, numbers.Values[i], offsets, rows, i);
        scaler.Scales[0] = scale;
        return;
    }
    for (size_t i = 0; i < rows.Count; ++i) {
        const uint8_t power = numbers.Powers[i];
        TimeScale &scale = scaleAt(scaler, power, rows, i);
        units[i] = scaled(scaler, scale, numbers.Values[i], offsetsAt(scaler, power, rows, i), rows, i);
    }
}

uint64_t wholeTicks(const Numbers &numbers, size_t row)
{
    const uint64_t count = numbers.AreWhole ? 1 : numbersPerTick(numbers.Powers[row]);
    return count == 0 ? 0 : numbers.Values[row] / count;
}

double largestRounding(const NumberScaler &scaler)
{
    double largest = 0;
    for (const auto &scale : scaler.Scales)
        if (scale)
            largest = std::max(largest, static_cast<double>(scale->LargestRounding) /
                                            static_cast<double>(scale->UnitsPerNumber.Den));
    return largest;
}

} // namespace Tessel::Cli
