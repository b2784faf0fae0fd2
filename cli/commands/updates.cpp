// The main thread's.
#include "commands/updates.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/output.h"
#include "program/progress.h"
#include "program/session.h"
#include "program/units.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>

namespace Tessel::Cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int lastLines = 4; // below the last picture: what is said of the run's end, and the prompt

std::chrono::duration<double> intervalOf(const UpdateOptions &options)
{
    constexpr double psPerSecond = 1e12, shortest = 0.01, longest = 3600;
    const double seconds =
        optionValue("--interval", [&] { return parseTimePs(options.Interval, "ps"); }) / psPerSecond;
    if (seconds < shortest || seconds > longest) throw Failure(Exit::Usage, "--interval: from 10ms to 1h");
    return std::chrono::duration<double>(seconds);
}

Frame emptyFrame(TerminalSize size)
{
    return {size.Columns, size.Rows, withUnicode(), withColour()};
}

void drawPicture(Updates &updates)
{
    updates.Size = terminalSize();
    Frame frame = emptyFrame(updates.Size);
    updates.Show.Draw(frame);
    showFrame(frame);
}

void writeLine(Updates &updates, bool isLast)
{
    boost::json::object line = {{"update", ++updates.NumLines}, {"final", isLast}};
    for (auto &[key, value] : updates.Show.Line()) line[key] = std::move(value);
    writeResult("-", jsonText(line));
}

} // namespace

void addUpdateOptions(CLI::App &command, UpdateOptions &options, bool withLive)
{
    CLI::Option *lines =
        command.add_flag("--json-lines", options.JsonLines,
                         "Write one JSON object per update to standard output, the result last");
    if (withLive)
        command.add_flag("--live", options.Live, "Show rates and result in the terminal while they grow")
            ->excludes(lines);
    command.add_option("--interval", options.Interval, "Time between two updates")
        ->type_name("TIME")
        ->capture_default_str();
}

void checkUpdateOptions(const UpdateOptions &options)
{
    intervalOf(options);
}

bool drawsLive(const UpdateOptions &options, const HostOptions &host)
{
    return options.Live && !options.JsonLines && canDraw() && !host.Quiet && !host.Verbose;
}

Updates::Updates(const UpdateOptions &options, const HostOptions &host, Shown shown)
    : Show(std::move(shown)),
      JsonLines(options.JsonLines),
      Interval(intervalOf(options)),
      Start(Clock::now()),
      Next(Start + std::chrono::duration_cast<Clock::duration>(Interval))
{
    if (drawsLive(options, host)) Picture.emplace();
}

void update(Updates &updates)
{
    if (!updates.Picture && !updates.JsonLines) return;
    const auto now = Clock::now();
    const bool isDue = now >= updates.Next;
    const bool isResized = updates.Picture && terminalSize() != updates.Size;
    if (!isDue && !isResized) return;
    updates.Show.Refresh(secondsSince(updates.Start));
    if (updates.Picture) drawPicture(updates);
    if (updates.JsonLines && isDue) writeLine(updates, false);
    const auto rest = std::min<Clock::duration>(4 * (Clock::now() - now), std::chrono::seconds(1));
    const auto interval = std::chrono::duration_cast<Clock::duration>(updates.Interval);
    updates.Next = std::max(updates.Next + interval, Clock::now() + rest);
}

void finish(Updates &updates)
{
    if (updates.Picture) {
        updates.Picture.reset();
        TerminalSize size = terminalSize();
        size.Rows -= lastLines;
        Frame frame = emptyFrame(size);
        updates.Show.Draw(frame);
        showOnStandardError(frameText(frame));
    }
    const bool isRead = interruptSignal() != SIGPIPE;
    if (updates.JsonLines && isRead) writeLine(updates, true);
}

} // namespace Tessel::Cli
