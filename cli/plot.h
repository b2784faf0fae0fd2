// Curves drawn by gnuplot into a PNG or SVG file.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct Curve
{
    std::string Name;
    std::vector<double> X, Y;
};

struct Plot
{
    std::string Title, XLabel, YLabel;
    bool LogY = false; // points at or below 0 are left out
    double XMin = 0, XMax = 0;
    std::vector<Curve> Curves;
};

// Throws a usage Failure unless the file's name ends in .png or .svg.
void checkPlotName(const std::string &path);

// The gnuplot script with its data: all that drawing depends on.
std::string plotScript(const Plot &plot, const std::string &path);

// Throws Failure if gnuplot is missing or couldn't draw.
void drawPlot(const Plot &plot, const std::string &path);

} // namespace Tessel::Cli
