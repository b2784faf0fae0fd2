// The axes of a plot of characters.
#pragma once

#include "program/frame.h"

#include <cmath>
#include <string>

namespace Tessel::Cli {

struct Range
{
    double Low = INFINITY, High = -INFINITY;
    bool isEmpty() const { return !(Low <= High); }
};

// Linear or by decades; positions on it are from 0 to 1.
struct ValueAxis
{
    bool Log = false;
    double Low = 0, High = 1; // their decimal logarithms, if by decades

    double scaled(double value) const { return Log ? std::log10(value) : value; }
    double position(double value) const { return (scaled(value) - Low) / (High - Low); }
    bool has(double value) const { return std::isfinite(value) && (!Log || value > 0); }
};

// From one end of the range to the other.
ValueAxis axisOf(bool log, const Range &range);

// Around the range: whole decades, or whole ticks with 0 among them.
ValueAxis roundedAxis(bool log, const Range &range);

// To the left of the plot, and below it in two rows.
void drawYAxis(Frame &frame, const Area &plot, const ValueAxis &axis);
void drawXAxis(Frame &frame, const Area &plot, const ValueAxis &axis, const std::string &name);

} // namespace Tessel::Cli
