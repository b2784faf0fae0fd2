// A picture of characters: cells of a fixed number that texts are put into. What doesn't fit is cut, so a
// picture is never wider than its terminal. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

// Number of a colour among the 256 of a terminal; 0 is the terminal's own.
using Colour = uint8_t;

namespace Shade {
constexpr Colour Quiet = 245; // what is read last: axes, units
constexpr Colour Good = 36, Bad = 202;
} // namespace Shade

struct Cell
{
    char32_t Sign = U' '; // 0: the right half of a sign that is two cells wide
    Colour Front = 0, Back = 0;
};

struct Frame
{
    Frame(int columns, int rows, bool unicode, bool colours);

    int Columns, Rows;
    bool Unicode, Colours; // may be used
    std::vector<Cell> Cells;

    Cell &at(int row, int column)
    {
        return Cells[static_cast<size_t>(row) * static_cast<size_t>(Columns) + static_cast<size_t>(column)];
    }
    const Cell &at(int row, int column) const { return const_cast<Frame *>(this)->at(row, column); }
};

// A part of a frame.
struct Area
{
    int Row, Column, Rows, Columns;
};

// Puts one sign, if the cell is there; without Unicode what isn't ASCII becomes '?', and a u for a micro.
void putSign(Frame &frame, int row, int column, char32_t sign, Colour front = 0, Colour back = 0);

// Returns the column behind the text, which may be behind the frame.
int putText(Frame &frame, int row, int column, std::string_view text, Colour front = 0);

// Columns that the text needs.
int widthOf(std::string_view text);

// Texts one after the other with two blanks between, in as many rows as they need, up to `mostRows`; what
// has no room is left out. Returns the rows.
struct FrameItem
{
    char32_t Mark = 0; // 0: none
    Colour MarkColour = 0;
    std::string Text;
    Colour TextColour = 0;
};
int putItems(Frame &frame, int row, int mostRows, const std::vector<FrameItem> &items);

// All cells of a row, with the codes of a terminal for their colours.
std::string rowText(const Frame &frame, int row);

// The rows as lines, without the blanks at their ends, and without empty lines at the end.
std::string frameText(const Frame &frame);

} // namespace Tessel::Cli
