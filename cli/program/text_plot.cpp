// Curves are dots, eight in a cell (braille), where Unicode and colours can be used, else a mark in a cell.
#include "program/text_plot.h"

#include "program/text_axis.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

namespace Tessel::Cli {

namespace {

// As those of a drawn plot, of the 256 of a terminal.
constexpr Colour curveColours[] = {32, 202, 36, 175, 117, 214, 250, 185};
constexpr std::string_view curveMarks = "*+ox#@%&";

// Dots of a cell, by row and column of the dot.
constexpr char32_t noDots = U'\u2800';
constexpr uint8_t dotBits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};

bool usesDots(const Frame &frame)
{
    return frame.Unicode && frame.Colours;
}

// A curve by columns of dots: the mean of the points in each; where points are further apart, what lies
// between.
using Columns = std::vector<std::optional<double>>;

void fillBetween(Columns &columns, const ValueAxis &y, size_t from, size_t to)
{
    if (!y.has(*columns[from]) || !y.has(*columns[to])) return;
    const double first = y.scaled(*columns[from]), last = y.scaled(*columns[to]);
    for (size_t at = from + 1; at < to; ++at) {
        const double value =
            first + (last - first) * static_cast<double>(at - from) / static_cast<double>(to - from);
        columns[at] = y.Log ? std::pow(10, value) : value;
    }
}

Columns columnsOf(const Curve &curve, const ValueAxis &x, const ValueAxis &y, int count)
{
    Columns columns(static_cast<size_t>(count));
    std::vector<int> points(static_cast<size_t>(count));
    for (size_t i = 0; i < curve.X.size(); ++i) {
        if (!x.has(curve.X[i]) || !std::isfinite(curve.Y[i])) continue;
        const double position = x.position(curve.X[i]);
        if (position < 0 || position > 1) continue;
        const auto at = static_cast<size_t>(std::min(position * count, count - 1.0));
        columns[at] = columns[at].value_or(0) + curve.Y[i];
        ++points[at];
    }
    std::optional<size_t> before;
    for (size_t at = 0; at < columns.size(); ++at) {
        if (points[at] == 0) continue;
        *columns[at] /= points[at];
        if (before) fillBetween(columns, y, *before, at);
        before = at;
    }
    return columns;
}

Range rangeOf(const std::vector<Columns> &curves, const ValueAxis &y)
{
    Range range;
    for (const Columns &columns : curves)
        for (const auto &value : columns)
            if (value && y.has(*value)) range = {std::min(range.Low, *value), std::max(range.High, *value)};
    return range;
}

// The cells of the curves, and a dot's place in them.
struct Canvas
{
    Frame &On;
    Area Cells;
    bool Dots;

    int columns() const { return Cells.Columns * (Dots ? 2 : 1); }
    int rows() const { return Cells.Rows * (Dots ? 4 : 1); }
};

void setDot(const Canvas &canvas, int column, int row, const CurveLook &look)
{
    const int atRow = canvas.Cells.Row + row / (canvas.Dots ? 4 : 1),
              atColumn = canvas.Cells.Column + column / (canvas.Dots ? 2 : 1);
    if (!canvas.Dots) return putSign(canvas.On, atRow, atColumn, look.Mark, look.Colour);
    const char32_t before = canvas.On.at(atRow, atColumn).Sign;
    const char32_t dots = before > noDots && before <= noDots + 0xFF ? before : noDots;
    putSign(canvas.On, atRow, atColumn, dots | dotBits[row % 4][column % 2], look.Colour);
}

// Each column reaches from its own value to that of the column before.
void drawColumns(const Canvas &canvas, const Columns &columns, const ValueAxis &y, const CurveLook &look)
{
    std::optional<int> before;
    for (size_t column = 0; column < columns.size(); ++column) {
        std::optional<int> row;
        if (columns[column] && y.has(*columns[column])) {
            const double fromTop = 1 - std::clamp(y.position(*columns[column]), 0.0, 1.0);
            row = static_cast<int>(std::lround(fromTop * (canvas.rows() - 1)));
            const int other = before.value_or(*row);
            const int from = std::min(*row, other + (*row > other)),
                      to = std::max(*row, other - (*row < other));
            for (int at = from; at <= to; ++at) setDot(canvas, static_cast<int>(column), at, look);
        }
        before = row;
    }
}

// Room for the longest labels of the axes, if there is any.
Area insideAxes(const Area &area)
{
    constexpr int labelColumns = 8, axisRows = 2;
    if (area.Columns < 3 * labelColumns || area.Rows < 2 * axisRows) return area;
    return {area.Row, area.Column + labelColumns, area.Rows - axisRows, area.Columns - labelColumns};
}

bool hasAxes(const Area &plot, const Area &area)
{
    return plot.Rows < area.Rows;
}

void drawCurves(Frame &frame, const Area &area, const Plot &plot)
{
    const Area inside = insideAxes(area);
    const Canvas canvas{frame, inside, usesDots(frame)};
    const ValueAxis x = axisOf(plot.LogX, {plot.XMin, plot.XMax});
    const ValueAxis scale{.Log = plot.LogY};
    std::vector<Columns> curves;
    for (const Curve &curve : plot.Curves) curves.push_back(columnsOf(curve, x, scale, canvas.columns()));
    const ValueAxis y = roundedAxis(plot.LogY, rangeOf(curves, scale));
    if (hasAxes(inside, area)) {
        drawYAxis(frame, inside, y);
        drawXAxis(frame, inside, x, plot.XLabel);
    }
    for (size_t i = 0; i < curves.size(); ++i) drawColumns(canvas, curves[i], y, lookOf(frame, i));
}

// From dark to bright, so that it also reads in grey and by colour-blind readers.
constexpr Colour levelColours[] = {17, 18, 24, 30, 36, 42, 78, 114, 149, 184, 226};
constexpr std::u32string_view unicodeShades = U" ░▒▓█", asciiShades = U" .:-=+*#%@";

// Its cells, brought onto as many places as there are: the largest value of those in a place.
struct MapPicture
{
    int Columns, Rows;
    double Largest = 0;
    std::vector<double> Values; // the lowest row first

    double at(int column, int row) const
    {
        return Values[static_cast<size_t>(row) * static_cast<size_t>(Columns) + static_cast<size_t>(column)];
    }
};

MapPicture pictureOf(const ColourMap &map, int columns, int rows)
{
    MapPicture picture{.Columns = columns, .Rows = rows, .Largest = 0, .Values = {}};
    const size_t mapRows = map.Columns ? map.Values.size() / map.Columns : 0;
    picture.Values.resize(static_cast<size_t>(columns) * static_cast<size_t>(rows));
    if (mapRows == 0) return picture;
    const auto begin = [](int place, int places, size_t cells) {
        return static_cast<size_t>(place) * cells / static_cast<size_t>(places);
    };
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            double &value = picture.Values[static_cast<size_t>(row) * static_cast<size_t>(columns) +
                                           static_cast<size_t>(column)];
            const size_t left = begin(column, columns, map.Columns), low = begin(row, rows, mapRows);
            const size_t right = std::max(left + 1, begin(column + 1, columns, map.Columns)),
                         high = std::max(low + 1, begin(row + 1, rows, mapRows));
            for (size_t y = low; y < high; ++y)
                for (size_t x = left; x < right; ++x) value = std::max(value, map.Values[y * map.Columns + x]);
            picture.Largest = std::max(picture.Largest, value);
        }
    return picture;
}

// What is there is never shown as nothing.
size_t levelOf(const MapPicture &picture, int column, int row, size_t levels)
{
    const double value = picture.at(column, row);
    if (value <= 0) return 0;
    const double level = value / picture.Largest * static_cast<double>(levels - 1);
    return std::clamp<size_t>(static_cast<size_t>(std::lround(level)), 1, levels - 1);
}

// With colours a cell is two places, one above the other.
void drawMap(Frame &frame, const Area &area, const Plot &plot)
{
    const ColourMap &map = *plot.Map;
    const Area inside = insideAxes(area);
    const bool halves = usesDots(frame);
    const MapPicture picture = pictureOf(map, inside.Columns, inside.Rows * (halves ? 2 : 1));
    const std::u32string_view shades = frame.Unicode ? unicodeShades : asciiShades;
    const auto colourAt = [&](int column, int row) {
        return levelColours[levelOf(picture, column, row, std::size(levelColours))];
    };
    for (int row = 0; row < inside.Rows; ++row)
        for (int column = 0; column < inside.Columns; ++column) {
            const int place = picture.Rows - 1 - row * (halves ? 2 : 1);
            const int atRow = inside.Row + row, atColumn = inside.Column + column;
            if (halves)
                putSign(frame, atRow, atColumn, U'▀', colourAt(column, place), colourAt(column, place - 1));
            else
                putSign(frame, atRow, atColumn, shades[levelOf(picture, column, place, shades.size())]);
        }
    if (!hasAxes(inside, area)) return;
    const size_t rows = map.Columns ? map.Values.size() / map.Columns : 0;
    drawYAxis(frame, inside, axisOf(false, {0, static_cast<double>(rows) * map.CellHeight}));
    drawXAxis(frame, inside, axisOf(false, {0, static_cast<double>(map.Columns) * map.CellWidth}), plot.XLabel);
}

} // namespace

CurveLook lookOf(const Frame &frame, size_t curve)
{
    const Colour colour = curveColours[curve % std::size(curveColours)];
    if (usesDots(frame)) return {U'●', colour};
    return {static_cast<char32_t>(curveMarks[curve % curveMarks.size()]), colour};
}

void drawTextPlot(Frame &frame, const Area &area, const Plot &plot)
{
    if (area.Columns < 1 || area.Rows < 1) return;
    if (plot.Map)
        drawMap(frame, area, plot);
    else
        drawCurves(frame, area, plot);
}

} // namespace Tessel::Cli
