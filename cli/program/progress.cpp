// Drawing of the progress line. The main thread's.
#include "program/progress.h"

#include "program/console.h"
#include "program/frame.h"
#include "program/terminal.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessel::Cli {

namespace {

constexpr int barCells = 24;

// The last column stays free: the cursor stands there.
Frame lineFrame()
{
    return {terminalSize().Columns - 1, 1, withUnicode(), withColour()};
}

int putBar(Frame &frame, int column, double fraction)
{
    constexpr Colour barColour = 36;
    const int full = static_cast<int>(std::lround(fraction * barCells));
    for (int i = 0; i < barCells; ++i) {
        const char32_t sign = i < full ? (frame.Unicode ? U'━' : U'#') : (frame.Unicode ? U'─' : U'-');
        putSign(frame, 0, column + i, sign, barColour);
    }
    return column + barCells;
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
    if (quiet() || !canDraw()) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - progress.LastShown < std::chrono::milliseconds(100)) return;
    progress.LastShown = now;
    progress.Shown = true;
    fraction = std::clamp(fraction, 0.0, 1.0);
    const double elapsed = secondsSince(progress.Start);
    const std::string left =
        fraction > 0 ? fmt::format("{:.0f} s left", elapsed * (1 - fraction) / fraction) : std::string();
    Frame line = lineFrame();
    const int column = putBar(line, putText(line, 0, 0, progress.Name) + 1, fraction);
    putText(line, 0, column,
            fmt::format(" {:3.0f} %  {} records/s  {}", 100 * fraction,
                        countText(static_cast<double>(records) / elapsed), left));
    showOnStandardError("\r" + rowText(line, 0));
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace Tessel::Cli
