#include "program/frame_table.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr int columnGap = 2, shortestName = 8;

std::vector<int> columnWidths(const std::vector<std::vector<std::string>> &lines)
{
    std::vector<int> widths;
    for (const auto &line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], widthOf(line[i]));
    }
    return widths;
}

// Leaves out columns of numbers until the names have room, and what the names need not.
void fit(std::vector<int> &widths, int columns)
{
    const auto numbers = [&] {
        int all = 0;
        for (size_t i = 1; i < widths.size(); ++i) all += columnGap + widths[i];
        return all;
    };
    while (widths.size() > 1 && numbers() + std::min(widths[0], shortestName) > columns) widths.pop_back();
    widths[0] = std::min(widths[0], columns - numbers());
}

void putLine(Frame &frame, int row, int column, const std::vector<std::string> &line,
             const std::vector<int> &widths, Colour colour)
{
    Frame name(widths[0], 1, frame.Unicode, frame.Colours); // cuts it
    putText(name, 0, 0, line[0], colour);
    for (int i = 0; i < name.Columns && column + i < frame.Columns; ++i)
        frame.at(row, column + i) = name.at(0, i);
    int end = column + widths[0];
    for (size_t i = 1; i < std::min(line.size(), widths.size()); ++i) {
        end += columnGap + widths[i];
        putText(frame, row, end - widthOf(line[i]), line[i], colour);
    }
}

} // namespace

void putTable(Frame &frame, const Area &area, const std::vector<std::vector<std::string>> &lines)
{
    const int rows = std::min(area.Rows, frame.Rows - area.Row), all = static_cast<int>(lines.size());
    if (lines.empty() || rows < 1) return;
    std::vector<int> widths = columnWidths(lines);
    fit(widths, std::min(area.Columns, frame.Columns - area.Column));
    const int shown = all <= rows ? all : rows - 1;
    for (int i = 0; i < shown; ++i)
        putLine(frame, area.Row + i, area.Column, lines[static_cast<size_t>(i)], widths,
                i ? Colour(0) : Shade::Quiet);
    if (shown < all)
        putText(frame, area.Row + shown, area.Column, fmt::format("and {} more", all - shown), Shade::Quiet);
}

} // namespace Tessel::Cli
