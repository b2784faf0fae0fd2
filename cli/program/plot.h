// Curves, or a colour map, drawn by gnuplot into a PNG, SVG or PDF file.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct Curve
{
    std::string Name;
    std::vector<double> X, Y;
    std::vector<double> Sigma{}; // of Y, drawn as bars; none: no bars
};

// Counts of bins, each at its centre; the first bin starts at `start`.
Curve binCurve(std::string name, std::span<const uint32_t> counts, double start, double width);

// Values over x times `factor`.
Curve scaledCurve(std::string name, std::span<const double> x, double factor, std::span<const double> values);

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
    std::optional<double> Level; // a line across, what uncorrelated light gives
    std::vector<Curve> Curves;
    std::optional<ColourMap> Map; // instead of curves
};

// Where and how a plot is drawn.
struct PlotOptions
{
    std::string File;              // empty: none is drawn
    std::string Title;             // empty: the plot's own
    std::string Size = "1000x560"; // in points of the screen; a PNG has 1.6 pixels for each
    bool Errors = false;           // bars of one standard deviation
};

// Throws a usage Failure unless the file's name ends in .png, .svg or .pdf and the size is one, and a Failure
// without gnuplot.
void checkPlot(const PlotOptions &options);

// The gnuplot script with its data: all that drawing depends on.
std::string plotScript(const Plot &plot, const PlotOptions &options);

// Throws Failure if gnuplot is missing or couldn't draw.
void drawPlot(const Plot &plot, const PlotOptions &options);

} // namespace Tessel::Cli
