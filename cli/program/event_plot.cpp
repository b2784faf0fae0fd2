#include "program/event_plot.h"

#include "program/measure.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr uint32_t dtimeBits = 15;
constexpr uint8_t firstMarker = 128;

struct Point
{
    double Time, Behind; // ps; behind the sync or, in T2, behind the event before
};

// The mean period of the sync; what a file doesn't tell counts in syncs.
double syncPeriodPs(const Recording &recording)
{
    const double rate = recording.Description.at("AveSyncRate").to_number<double>();
    return rate > 0 ? 1e12 / rate : 1;
}

std::vector<Point> pointsOf(const FirstEvents &events, const Recording &recording)
{
    const bool isT3 = recording.MeasMode == 3;
    const double period = isT3 ? syncPeriodPs(recording) : 0;
    const double resolution = recording.Config.at("Resolution").to_number<double>();
    std::vector<Point> points;
    for (size_t i = 0; i < events.Times.size(); ++i) {
        const uint64_t time = events.Times[i];
        const auto dtime = static_cast<double>(time & ((1u << dtimeBits) - 1)) * resolution;
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
        last = {std::max(last.Time, point.Time), std::max(last.Behind, point.Behind)};
    const TimeAxis axis = timeAxis(last.Time), behindAxis = timeAxis(last.Behind);
    Plot plot;
    plot.Title = fmt::format("{}, the first {} events", plotTitle(recording), points.size());
    plot.XLabel = fmt::format("Time ({})", axis.Unit);
    plot.YLabel = fmt::format("Time behind the {} ({})", isT3 ? "sync" : "event before", behindAxis.Unit);
    plot.LogY = !isT3;
    plot.XMax = last.Time * axis.Factor;
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        Curve curve{.Name = rowName(recording, row), .X = {}, .Y = {}};
        for (size_t i = 0; i < points.size(); ++i) {
            if (events.Channels[i] != row) continue;
            curve.X.push_back(points[i].Time * axis.Factor);
            curve.Y.push_back(points[i].Behind * behindAxis.Factor);
        }
        if (!curve.X.empty()) plot.Curves.push_back(std::move(curve));
    }
    return plot;
}

} // namespace Tessel::Cli
