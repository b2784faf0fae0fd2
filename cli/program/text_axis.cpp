#include "program/text_axis.h"

#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace Tessel::Cli {

namespace {

// The step of ticks of which about five fit: 1, 2 or 5 times a power of ten.
double tickStep(double span)
{
    const double raw = span / 5, power = std::pow(10, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= raw) return factor * power;
    return 10 * power;
}

} // namespace

ValueAxis axisOf(bool log, const Range &range)
{
    ValueAxis axis{.Log = log, .Low = range.Low, .High = range.High};
    if (log) axis.Low = std::log10(range.Low), axis.High = std::log10(range.High);
    if (!(axis.High > axis.Low) || !std::isfinite(axis.High - axis.Low)) axis.Low = 0, axis.High = 1;
    return axis;
}

ValueAxis roundedAxis(bool log, const Range &range)
{
    if (range.isEmpty()) return {.Log = log, .Low = 0, .High = 1};
    if (log) {
        const double low = std::floor(std::log10(range.Low)), high = std::ceil(std::log10(range.High));
        return {.Log = true, .Low = low, .High = std::max(high, low + 1)};
    }
    const double low = std::min(range.Low, 0.0), span = range.High - low;
    const double step = tickStep(span > 0 ? span : 1);
    return {.Log = false,
            .Low = std::floor(low / step) * step,
            .High = std::max(std::ceil(range.High / step), std::floor(low / step) + 1) * step};
}

namespace {

std::string valueLabel(double value)
{
    if (std::abs(value) >= 1) return countText(value);
    return std::abs(value) < 1e-12 ? "0" : fmt::format("{:.3g}", value);
}

std::vector<double> ticksOf(const ValueAxis &axis)
{
    constexpr int most = 20;
    const double span = axis.High - axis.Low;
    const double step = axis.Log ? std::max(1.0, std::ceil(span / 10)) : tickStep(span);
    const double first = std::ceil(axis.Low / step - 1e-9), last = std::floor(axis.High / step + 1e-9);
    std::vector<double> ticks;
    for (int i = 0; i < most && first + i <= last; ++i)
        ticks.push_back(axis.Log ? std::pow(10, (first + i) * step) : (first + i) * step + 0.0); // no -0
    return ticks;
}

void putRight(Frame &frame, int row, int end, const std::string &text)
{
    putText(frame, row, end - widthOf(text), text, Shade::Quiet);
}

} // namespace

void drawYAxis(Frame &frame, const Area &plot, const ValueAxis &axis)
{
    for (int row = 0; row < plot.Rows; ++row)
        putSign(frame, plot.Row + row, plot.Column - 1, frame.Unicode ? U'│' : U'|', Shade::Quiet);
    int above = plot.Rows; // the row of the label before: no two of them touch
    for (const double tick : ticksOf(axis)) {
        const int row = static_cast<int>(std::lround((1 - axis.position(tick)) * (plot.Rows - 1)));
        if (row > above - 2 && above != plot.Rows) continue;
        above = row;
        putSign(frame, plot.Row + row, plot.Column - 1, frame.Unicode ? U'┤' : U'+', Shade::Quiet);
        putRight(frame, plot.Row + row, plot.Column - 1, valueLabel(tick));
    }
}

// Labels are centred at their ticks, and left out where they have no room.
void drawXAxis(Frame &frame, const Area &plot, const ValueAxis &axis, const std::string &name)
{
    const int row = plot.Row + plot.Rows;
    for (int column = -1; column < plot.Columns; ++column)
        putSign(frame, row, plot.Column + column,
                frame.Unicode ? (column < 0 ? U'└' : U'─') : (column < 0 ? U'+' : U'-'), Shade::Quiet);
    const int end = plot.Column + plot.Columns, nameAt = end - widthOf(name);
    int used = -1;
    for (const double tick : ticksOf(axis)) {
        const int column =
            plot.Column + static_cast<int>(std::lround(axis.position(tick) * (plot.Columns - 1)));
        putSign(frame, row, column, frame.Unicode ? U'┴' : U'+', Shade::Quiet);
        const std::string label =
            axis.Log ? fmt::format("1e{:.0f}", std::log10(tick)) : fmt::format("{:.6g}", tick);
        const int at = std::max(0, column - widthOf(label) / 2);
        if (at <= used || at + widthOf(label) >= std::max(nameAt, plot.Column)) continue;
        used = putText(frame, row + 1, at, label, Shade::Quiet);
    }
    if (nameAt > used) putText(frame, row + 1, nameAt, name, Shade::Quiet);
}

} // namespace Tessel::Cli
