// Numbers of a column in units of the recording, exactly: units = number x Num / Den, rounded to the nearest.
// No division per number.
#pragma once

#include "columns/fraction.h"

#include <algorithm>
#include <cstdint>

namespace Tessel::Cli {

// I1: MostNumber x Num / Den is below 2^63.
struct TimeScale
{
    Fraction UnitsPerNumber;
    uint64_t WholePart = 0, FractionPart = 0; // of Num / Den, the fraction in units of 2^-64, cut off
    uint64_t MostNumber = 0;                  // that becomes a time
    uint64_t LargestRounding = 0;             // of all numbers so far, in units / Den
};

// `mostUnits`: that a number may become, below 2^63.
inline TimeScale makeTimeScale(const Fraction &unitsPerNumber, uint64_t mostUnits)
{
    const uint64_t num = unitsPerNumber.Num, den = unitsPerNumber.Den;
    TimeScale scale{.UnitsPerNumber = unitsPerNumber, .WholePart = num / den};
    scale.FractionPart = static_cast<uint64_t>((Wide(num % den) << 64) / den);
    scale.MostNumber = static_cast<uint64_t>(std::min<Wide>(Wide(mostUnits) * den / num, ~uint64_t(0)));
    return scale;
}

// `number`: at most MostNumber.
inline uint64_t toUnits(TimeScale &scale, uint64_t number)
{
    const uint64_t den = scale.UnitsPerNumber.Den;
    // What FractionPart lacks makes it at most 1 too small.
    uint64_t units = number * scale.WholePart + static_cast<uint64_t>(Wide(number) * scale.FractionPart >> 64);
    uint64_t rest =
        number * scale.UnitsPerNumber.Num - units * den; // below 2 x Den, so the high bits don't matter
    const uint64_t isMore = rest >= den;
    units += isMore;
    rest -= isMore ? den : 0;
    const uint64_t isUpper = rest >= den - rest;
    scale.LargestRounding = std::max(scale.LargestRounding, isUpper ? den - rest : rest);
    return units + isUpper;
}

} // namespace Tessel::Cli
