// Curves, or a colour map, drawn by gnuplot into a PNG or SVG file.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct Curve
{
    std::string Name;
    std::vector<double> X, Y;
};

// Cells of one size on a plane; Values row by row, Columns of them in a row, the lowest row first.
struct ColourMap
{
    std::string Label; // of the colour
    size_t Columns = 0;
    double CellWidth = 1, CellHeight = 1; // the lower left corner is the origin
    std::vector<double> Values;
};

struct Plot
{
    std::string Title, XLabel, YLabel;
    bool LogX = false, LogY = false; // points at or below 0 are left out
    bool Lines = false;              // instead of points
    double XMin = 0, XMax = 0;
    std::vector<Curve> Curves;
    std::optional<ColourMap> Map; // instead of curves
};

// Throws a usage Failure unless the file's name ends in .png or .svg.
void checkPlotName(const std::string &path);

// The gnuplot script with its data: all that drawing depends on.
std::string plotScript(const Plot &plot, const std::string &path);

// Throws Failure if gnuplot is missing or couldn't draw.
void drawPlot(const Plot &plot, const std::string &path);

} // namespace Tessel::Cli
