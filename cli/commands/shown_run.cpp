// The main thread's.
#include "commands/shown_run.h"

#include "commands/result_head.h"
#include "commands/updates.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <fmt/format.h>

#include <chrono>

namespace Tessel::Cli {

namespace {

// The result so far.
boost::json::object updateLine(const ShownRun &run, const Measured &measured, const CountRates &rates)
{
    boost::json::object line = run.Json();
    line["seconds"] = measured.Run.Seconds;
    line["rates"] = nullptr;
    if (measured.From.isLive()) line["rates"] = ratesJson(rates);
    return line;
}

// Stops the run once it has come to what was asked for.
struct EndWatch
{
    std::string Reached;
    std::chrono::steady_clock::time_point Next;
};

void watchEnd(EndWatch &watch, const ShownRun &run)
{
    const auto now = std::chrono::steady_clock::now();
    if (!run.EndsBy || !watch.Reached.empty() || now < watch.Next) return;
    watch.Next = now + std::chrono::milliseconds(10);
    watch.Reached = run.EndsBy();
    if (!watch.Reached.empty()) stopMeasure(nullptr);
}

} // namespace

void runShown(const MeasureOptions &options, const HostOptions &host, const ShownRun &run, Measured &measured)
{
    LiveState state;
    Updates updates(options.Updates, host,
                    {.Refresh =
                         [&](double seconds) {
                             run.Take(false);
                             refresh(state, measured, seconds);
                         },
                     .Draw = [&](Frame &frame) { run.Draw(frame, state); },
                     .Line = [&] { return updateLine(run, measured, state.Rates); }});
    EndWatch watch;
    const auto start = [&](int32_t acqTimeMs, uint8_t *finished) {
        run.Start({acqTimeMs, prepareRecording(measured), finished});
    };
    const auto step = [&] {
        const bool wasBusy = run.Fetch && run.Fetch();
        update(updates);
        watchEnd(watch, run);
        return wasBusy;
    };
    measured.Run = replay(measured.From, start, step, !updates.Picture);
    measured.Run.Reached = watch.Reached;
    run.Take(true);
    lookBack(measured);
    finish(updates);
}

uint8_t prepareRecording(const Measured &measured)
{
    if (!measured.Into) return 0;
    giveToLibrary(*measured.Into);
    return 1;
}

void lookBack(Measured &measured)
{
    if (measured.Into) measured.Written = recordedFile(*measured.Into);
    if (measured.From.isLive()) measured.Rates = countRates(measured.From);
}

namespace {

// False: something of it is missing.
bool reportRecording(const Measured &measured)
{
    const Recorded &file = measured.Written;
    const std::string name = visibleText(file.Path);
    if (file.Path != measured.Into->Path)
        warn(fmt::format("{} was taken meanwhile; recorded as {}", measured.Into->Shown, name));
    if (file.NumRecords < measured.Run.NumRead)
        warn(fmt::format("{}: only {} of {} records are in the file", name, file.NumRecords,
                         measured.Run.NumRead));
    else if (!file.IsClosed)
        warn(fmt::format("{}: the recording was not closed", name));
    else
        note(fmt::format("{}: {}, {}", measured.Into->Shown, counted(file.NumRecords, "record"),
                         byteText(static_cast<double>(file.Bytes))));
    return file.IsClosed && file.NumRecords >= measured.Run.NumRead;
}

} // namespace

int reportRun(const Measured &measured)
{
    const bool isWhole = !measured.Into || reportRecording(measured);
    const int code = reportOutcome(measured.From, measured.Run);
    return code == 0 && !isWhole ? static_cast<int>(Exit::DataLost) : code;
}

} // namespace Tessel::Cli
