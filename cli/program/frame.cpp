#include "program/frame.h"

#include <boost/locale/utf.hpp>
#include <fmt/format.h>

#include <clocale>
#include <cwchar>

namespace Tessel::Cli {

namespace {

constexpr char32_t micro = U'µ';

// Decoded; what is no UTF-8 becomes '?'.
std::u32string signsOf(std::string_view text)
{
    std::u32string signs;
    const char *at = text.data(), *end = at + text.size();
    while (at != end) {
        const char *before = at;
        const auto code = boost::locale::utf::utf_traits<char>::decode(at, end);
        const bool isGood = boost::locale::utf::is_valid_codepoint(code);
        if (!isGood) at = before + 1;
        signs += isGood ? static_cast<char32_t>(code) : U'?';
    }
    return signs;
}

std::string utf8(char32_t sign)
{
    std::string text;
    boost::locale::utf::utf_traits<char>::encode(sign, std::back_inserter(text));
    return text;
}

// Cells of each sign, by the locale of the C library that knows all of Unicode, whatever the program's is.
struct SignWidths
{
    SignWidths() : Unicode(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
    {
        if (Unicode) Before = uselocale(Unicode);
    }
    ~SignWidths()
    {
        if (!Unicode) return;
        uselocale(Before);
        freelocale(Unicode);
    }
    SignWidths(const SignWidths &) = delete;
    SignWidths &operator=(const SignWidths &) = delete;

    // 0 to 2.
    int of(char32_t sign) const
    {
        if (sign >= U' ' && sign < 0x7F) return 1;
        return Unicode ? std::max(0, wcwidth(static_cast<wchar_t>(sign))) : 1;
    }

    locale_t Unicode, Before{};
};

} // namespace

Frame::Frame(int columns, int rows, bool unicode, bool colours)
    : Columns(std::max(columns, 0)),
      Rows(std::max(rows, 0)),
      Unicode(unicode),
      Colours(colours),
      Cells(static_cast<size_t>(Columns) * static_cast<size_t>(Rows))
{
}

void putSign(Frame &frame, int row, int column, char32_t sign, Colour front, Colour back)
{
    if (row < 0 || row >= frame.Rows || column < 0 || column >= frame.Columns) return;
    if (!frame.Unicode && sign >= 0x7F) sign = sign == micro ? U'u' : U'?';
    frame.at(row, column) = {sign, front, back};
}

int putText(Frame &frame, int row, int column, std::string_view text, Colour front)
{
    const SignWidths widths;
    for (const char32_t sign : signsOf(text)) {
        const int width = frame.Unicode ? widths.of(sign) : 1;
        if (width == 0) continue; // it would stand over the sign before
        if (column + width <= frame.Columns) putSign(frame, row, column, sign, front);
        if (width == 2 && column + width <= frame.Columns) putSign(frame, row, column + 1, 0, front);
        column += width;
    }
    return column;
}

int widthOf(std::string_view text)
{
    const SignWidths widths;
    int width = 0;
    for (const char32_t sign : signsOf(text)) width += widths.of(sign);
    return width;
}

int putItems(Frame &frame, int row, int mostRows, const std::vector<FrameItem> &items)
{
    if (items.empty() || mostRows <= 0) return 0;
    int column = 0, used = 1;
    for (const FrameItem &item : items) {
        const int width = widthOf(item.Text) + (item.Mark ? 2 : 0);
        if (column > 0 && column + width > frame.Columns) {
            if (used == mostRows) break;
            ++used;
            column = 0;
        }
        const int at = row + used - 1;
        if (item.Mark) putSign(frame, at, column, item.Mark, item.MarkColour);
        column = putText(frame, at, column + (item.Mark ? 2 : 0), item.Text, item.TextColour) + 2;
    }
    return used;
}

namespace {

std::string colourCode(const Cell &cell)
{
    std::string code = "\033[0";
    if (cell.Front) code += fmt::format(";38;5;{}", cell.Front);
    if (cell.Back) code += fmt::format(";48;5;{}", cell.Back);
    return code + "m";
}

bool isBlank(const Cell &cell)
{
    return cell.Sign == U' ' && cell.Back == 0;
}

int endOfRow(const Frame &frame, int row)
{
    int end = frame.Columns;
    while (end > 0 && isBlank(frame.at(row, end - 1))) --end;
    return end;
}

std::string textUpTo(const Frame &frame, int row, int end)
{
    std::string text;
    Cell last;
    for (int column = 0; column < end; ++column) {
        const Cell &cell = frame.at(row, column);
        if (cell.Sign == 0) continue;
        const bool isSame = cell.Front == last.Front && cell.Back == last.Back;
        if (frame.Colours && !isSame) text += colourCode(cell);
        last = cell;
        text += utf8(cell.Sign);
    }
    if (frame.Colours && (last.Front || last.Back)) text += "\033[0m";
    return text;
}

} // namespace

std::string rowText(const Frame &frame, int row)
{
    return textUpTo(frame, row, frame.Columns);
}

std::string frameText(const Frame &frame)
{
    int rows = frame.Rows;
    while (rows > 0 && endOfRow(frame, rows - 1) == 0) --rows;
    std::string text;
    for (int row = 0; row < rows; ++row) text += textUpTo(frame, row, endOfRow(frame, row)) + "\n";
    return text;
}

} // namespace Tessel::Cli
