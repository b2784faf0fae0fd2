// A block of the rows of a table of events, as they stand in the source.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Cli {

inline constexpr size_t rowsAtOnce = size_t(1) << 16;
inline constexpr uint32_t mostChannels = 1 << 16; // recorded numbers

// Numbers with a power each: number x 10^-p, or from binaryPower on number x 2^-(p - binaryPower). Whole
// numbers have the power 0.
inline constexpr uint8_t binaryPower = 64;
struct Numbers
{
    std::vector<uint64_t> Values;
    std::vector<uint8_t> Powers;
    bool AreWhole = true; // all powers are 0
};

// All columns that there are have Count entries.
struct Rows
{
    size_t Count = 0;
    uint64_t First = 0;             // number of the first row, from 0
    std::vector<uint64_t> Lines;    // of a text: the line of each row, from 1; else empty
    Numbers Times, Microtimes;      // without such a column empty
    std::vector<uint32_t> Channels; // below mostChannels; without such a column empty
};

// "line 17" or "row 17", both from 1.
inline std::string placeOf(const Rows &rows, size_t row)
{
    if (!rows.Lines.empty()) return "line " + std::to_string(rows.Lines[row]);
    return "row " + std::to_string(rows.First + row + 1);
}

} // namespace Tessel::Cli
