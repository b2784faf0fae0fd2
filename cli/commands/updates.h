// What a run shows while it goes on: a picture in the terminal (--live), lines of JSON (--json-lines).
#pragma once

#include "program/frame.h"
#include "program/terminal.h"

#include <boost/json/object.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace CLI {
class App;
} // namespace CLI

namespace Tessel::Cli {

struct HostOptions;

struct UpdateOptions
{
    bool Live = false, JsonLines = false;
    std::string Interval = "100ms";
};

// --live, where a command has it as an option, --json-lines and --interval.
void addUpdateOptions(CLI::App &command, UpdateOptions &options, bool withLive = true);

// What is shown at an update, in the order in which it is called.
struct Shown
{
    std::function<void(double seconds)> Refresh; // what has been counted in this time since the start
    std::function<void(Frame &)> Draw;
    std::function<boost::json::object()> Line;
};

// Throws a usage Failure.
void checkUpdateOptions(const UpdateOptions &options);

// Asked for, and standard error is a terminal for it, without the library's log.
bool drawsLive(const UpdateOptions &options, const HostOptions &host);

// From the start of the run. The first update comes after one interval.
struct Updates
{
    Updates(const UpdateOptions &options, const HostOptions &host, Shown shown);

    Cli::Shown Show;
    bool JsonLines;
    std::chrono::duration<double> Interval;
    std::optional<Screen> Picture; // there is one while it is drawn
    TerminalSize Size;             // of the picture
    std::chrono::steady_clock::time_point Start, Next;
    uint64_t NumLines = 0;
};

// If it is time, or the terminal has another size. Slow updates leave four fifths of the time to others.
void update(Updates &updates);

// After the run: the last picture stays on the terminal; the last line of JSON is that of the result.
void finish(Updates &updates);

} // namespace Tessel::Cli
