// Drawing of the progress line. The main thread's.
#include "program/progress.h"

#include "program/console.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessel::Cli {

namespace {

constexpr int barCells = 24;

std::string bar(double fraction)
{
    const int full = static_cast<int>(std::lround(fraction * barCells));
    std::string text;
    for (int i = 0; i < barCells; ++i) text += i < full ? "━" : "─";
    return withColour() ? "\033[36m" + text + "\033[0m" : text;
}

} // namespace

Progress::Progress(std::string stepName)
    : Name(std::move(stepName)), Start(std::chrono::steady_clock::now()), LastShown(Start)
{
}

Progress::~Progress()
{
    if (Shown) showOnStandardError("\r\033[K");
}

void showProgress(Progress &progress, double fraction, uint64_t records)
{
    if (quiet() || !onTerminal()) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - progress.LastShown < std::chrono::milliseconds(100)) return;
    progress.LastShown = now;
    progress.Shown = true;
    fraction = std::clamp(fraction, 0.0, 1.0);
    const double elapsed = secondsSince(progress.Start);
    const std::string left =
        fraction > 0 ? fmt::format("{:.0f} s left", elapsed * (1 - fraction) / fraction) : std::string();
    showOnStandardError(fmt::format("\r{} {} {:3.0f} %  {}records/s  {}\033[K", progress.Name, bar(fraction),
                                    100 * fraction, countText(static_cast<double>(records) / elapsed) + " ",
                                    left));
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace Tessel::Cli
