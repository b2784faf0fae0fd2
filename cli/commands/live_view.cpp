#include "commands/live_view.h"

#include "program/text_plot.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace Tessel::Cli {

namespace {

// "12.3 s of 60 s".
std::string timePassed(const LiveState &state, const Measured &measured)
{
    const double passed = measured.Run.Seconds - state.Began;
    const int32_t runForMs = measured.From.RunForMs;
    if (runForMs == 0 || runForMs == longestRunMs) return fmt::format("{:.1f} s", passed);
    return fmt::format("{:.1f} s of {}", std::min(passed, runForMs * 1e-3), timeText(runForMs * 1e9));
}

// Words and events; of what an instrument has dropped itself nobody knows how many.
std::string lostText()
{
    tessel_losses losses = {};
    losses.size = sizeof losses;
    if (!tessel_getLosses(nullptr, &losses)) return "";
    const auto &places = losses.places;
    if (places[TESSEL_LOSS_FIFO].occasions || places[TESSEL_LOSS_DROPPED].occasions) return "events lost";
    uint64_t lost = 0;
    for (const tessel_loss &place : places) lost += place.lost;
    return fmt::format("{} lost", lost);
}

double recordsPerSecond(const LiveState &state)
{
    if (state.Past.size() < 2) return 0;
    const auto &[from, before] = state.Past.front();
    const auto &[to, now] = state.Past.back();
    return to > from && now > before ? static_cast<double>(now - before) / (to - from) : 0;
}

std::vector<FrameItem> legendOf(const Frame &frame, const Plot &plot)
{
    std::vector<FrameItem> items;
    if (plot.Map) {
        const auto &values = plot.Map->Values;
        const double most = values.empty() ? 0 : *std::max_element(values.begin(), values.end());
        return {{.Text = fmt::format("{} per cell, up to {}", plot.Map->Label, countText(most))},
                {.Text = fmt::format("up: {}", plot.YLabel)}};
    }
    items.push_back({.Text = plot.YLabel});
    for (size_t i = 0; i < plot.Curves.size(); ++i) {
        const CurveLook look = lookOf(frame, i);
        items.push_back({.Mark = look.Mark, .MarkColour = look.Colour, .Text = plot.Curves[i].Name});
    }
    return items;
}

} // namespace

void refresh(LiveState &state, Measured &measured, double seconds)
{
    constexpr double span = 1;
    measured.Run = outcomeSoFar(seconds);
    if (measured.Run.NumRead == 0 && measured.From.MeasMode != 0) state.Began = seconds;
    state.Past.emplace_back(seconds, measured.Run.NumRead);
    while (state.Past.size() > 2 && seconds - state.Past[1].first >= span) state.Past.pop_front();
    if (!measured.From.isLive()) return;
    state.Rates = countRates(measured.From);
    state.Lost = lostText();
}

std::vector<FrameItem> statusItems(const LiveState &state, const Measured &measured)
{
    const Outcome &run = measured.Run;
    std::vector<FrameItem> items = {{.Text = plotTitle(measured.From)}, {.Text = timePassed(state, measured)}};
    if (measured.From.MeasMode != 0) {
        const std::string all = countText(static_cast<double>(measured.From.NumRecords));
        items.push_back({.Text = fmt::format("{} records{}", countText(static_cast<double>(run.NumRead)),
                                             measured.From.isLive() ? "" : " of " + all)});
        items.push_back({.Text = fmt::format("{}/s", countText(recordsPerSecond(state)))});
    }
    if (measured.Into) {
        const std::string name = visibleText(std::filesystem::path(measured.Into->Path).filename().string());
        const auto bytes = static_cast<double>(fileBytes(measured.Into->Path));
        items.push_back({.Text = fmt::format("{} {}", name, byteText(bytes))});
    }
    if (!state.Lost.empty())
        items.push_back(
            {.Text = state.Lost, .TextColour = state.Lost.starts_with("0 ") ? Shade::Quiet : Shade::Bad});
    return items;
}

std::vector<FrameItem> rateItems(const Recording &recording, const CountRates &rates)
{
    std::vector<FrameItem> items = {{.Text = fmt::format("Sync {}", rateText(rates.Sync))}};
    for (size_t i = 0; i < rates.Inputs.size(); ++i)
        items.push_back({.Text = fmt::format("{} {}", rowName(recording, static_cast<int64_t>(i) + 1),
                                             countRateText(rates.Inputs[i]))});
    return items;
}

void drawMeasuring(Frame &frame, const LiveState &state, const Measured &measured, const Plot &plot)
{
    const int most = std::max(1, frame.Rows / 5);
    int row = putItems(frame, 0, most, statusItems(state, measured));
    if (measured.From.isLive() && row < frame.Rows)
        row += putItems(frame, row, most, rateItems(measured.From, state.Rates));
    if (frame.Rows - row < 4) return; // the curves would say nothing
    row += putItems(frame, row, most, legendOf(frame, plot));
    drawTextPlot(frame, {row, 0, frame.Rows - row, frame.Columns}, plot);
}

} // namespace Tessel::Cli
