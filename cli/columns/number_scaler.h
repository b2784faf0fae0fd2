// The numbers of a block in units of the recording: whole ones, with decimals, or with binary fractions.
#pragma once

#include "columns/rows.h"
#include "columns/time_scale.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct NumberScaler
{
    std::string Shown, What; // for messages: the file, "time", and what a number beyond is
    std::string Beyond;      // "is later than a recording can hold"
    Fraction UnitsPerTick = {};
    uint64_t MostUnits = 0;
    uint64_t OriginTicks = 0;                              // taken off each number before it is scaled,
    uint64_t ShiftTicks = 0;                               // and added;
    uint64_t ShiftUnits = 0;                               // added after that
    std::array<std::optional<TimeScale>, 128> Scales = {}; // by power, made when they are needed
};

// Throws Failure, with the row: a number that is too large, or finer than can be scaled.
void scale(NumberScaler &scaler, const Numbers &numbers, const Rows &rows, std::vector<uint64_t> &units);

// A number without its fraction.
uint64_t wholeTicks(const Numbers &numbers, size_t row);

// The largest of all so far, in units.
double largestRounding(const NumberScaler &scaler);

} // namespace Tessel::Cli
