#include "commands/event_plot.h"

#include "commands/event_form.h"
#include "commands/measure.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr uint8_t firstMarker = 128;

struct Point
{
    double Time, Since; // ps; since the sync or, in T2, since the event before
};

std::vector<Point> pointsOf(const FirstEvents &events, const Recording &recording)
{
    const bool isT3 = recording.MeasMode == 3;
    const double period = recording.SyncPeriodPs > 0 ? recording.SyncPeriodPs : 1; // else the axis counts syncs
    std::vector<Point> points;
    for (size_t i = 0; i < events.Times.size(); ++i) {
        const uint64_t time = events.Times[i];
        const auto dtime = static_cast<double>(time & ((1u << dtimeBits) - 1)) * recording.ResolutionPs;
        if (isT3)
            points.push_back({static_cast<double>(time >> dtimeBits) * period + dtime, dtime});
        else
            points.push_back(
                {static_cast<double>(time), static_cast<double>(time - events.Times[i > 0 ? i - 1 : 0])});
    }
    return points;
}

} // namespace

void add(FirstEvents &events, uint64_t time, uint8_t channel)
{
    if (events.isFull() || channel >= firstMarker) return;
    events.Times.push_back(time);
    events.Channels.push_back(channel);
}

Plot eventPlot(const FirstEvents &events, const Recording &recording)
{
    const bool isT3 = recording.MeasMode == 3;
    const std::vector<Point> points = pointsOf(events, recording);
    Point last{1, 1};
    for (const Point &point : points)
        last = {std::max(last.Time, point.Time), std::max(last.Since, point.Since)};
    const TimeAxis axis = timeAxis(last.Time), sinceAxis = timeAxis(last.Since);
    Plot plot;
    plot.Title = fmt::format("{}, the first {}", plotTitle(recording), counted(points.size(), "event"));
    plot.XLabel = fmt::format("Time ({})", axis.Unit);
    plot.YLabel = fmt::format("Time since the {} ({})", isT3 ? "sync" : "event before", sinceAxis.Unit);
    plot.LogY = !isT3;
    plot.XMax = last.Time * axis.Factor;
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        Curve curve{.Name = rowName(recording, row), .X = {}, .Y = {}};
        for (size_t i = 0; i < points.size(); ++i) {
            if (events.Channels[i] != row) continue;
            curve.X.push_back(points[i].Time * axis.Factor);
            curve.Y.push_back(points[i].Since * sinceAxis.Factor);
        }
        if (!curve.X.empty()) plot.Curves.push_back(std::move(curve));
    }
    return plot;
}

} // namespace Tessel::Cli
