// Waiting for runs. The main thread's.
#include "program/replay.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/progress.h"
#include "program/terminal.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <thread>

namespace Tessel::Cli {

namespace {

// How far a replay has come. Until the run empties it, the description is that of the run before.
struct ReplayShown
{
    Progress &Line;
    const Recording &From;
    bool HasBegun = false;
};

void show(ReplayShown &shown)
{
    if (quiet() || !canDraw()) return;
    const auto read = runDescription().at("NumRecs").to_number<uint64_t>();
    const auto before = shown.From.Description.at("NumRecs").to_number<uint64_t>();
    if (!shown.HasBegun) shown.Line.Start = std::chrono::steady_clock::now(); // an instrument settles first
    shown.HasBegun = shown.HasBegun || read != before;
    if (!shown.HasBegun) return;
    const double fraction = shown.From.isLive()
                                ? secondsSince(shown.Line.Start) * 1e3 / shown.From.RunForMs
                                : static_cast<double>(read) / static_cast<double>(shown.From.NumRecords);
    showProgress(shown.Line, fraction, read);
}

// What is done beside a run. A failure is kept, as the run writes to what the caller owns: it must end first.
struct SideWork
{
    const std::function<bool()> &Step;
    std::exception_ptr Failure;
};

// True if there was something to do.
bool doStep(SideWork &work)
{
    if (!work.Step || work.Failure) return false;
    try {
        return work.Step();
    } catch (...) {
        work.Failure = std::current_exception();
        stopMeasure(nullptr);
        return false;
    }
}

} // namespace

Outcome replay(const Recording &recording,
               const std::function<void(int32_t acqTimeMs, uint8_t *finished)> &start,
               const std::function<bool()> &meanwhile, bool showsProgress)
{
    alignas(std::atomic_ref<uint8_t>::required_alignment) uint8_t finished = 0;
    const std::atomic_ref<uint8_t> isFinished(finished);
    const InterruptWatch watch(recording.isLive() ? HangUp::IsNoted : HangUp::EndsProgram);
    Progress progress(recording.isLive() ? "run" : "replay");
    Outcome outcome;
    SideWork work{meanwhile, nullptr};
    ReplayShown shown{progress, recording};
    const auto began = std::chrono::steady_clock::now();
    start(recording.RunForMs, &finished);
    const std::string refusal = libraryError(); // the run may have begun all the same
    while (isFinished.load(std::memory_order_acquire) == 0) {
        if (!doStep(work)) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (outcome.Signal == 0 && interruptSignal() != 0) {
            outcome.Signal = interruptSignal();
            stopMeasure(nullptr);
        }
        if (showsProgress) show(shown);
    }
    doStep(work);
    // Who read the output is gone: a result in a file is still wanted.
    if (work.Failure && outcome.Signal != SIGPIPE) std::rethrow_exception(work.Failure);
    if (!refusal.empty()) throw Failure(Exit::Failed, visibleText(refusal));
    outcome.Seconds = secondsSince(began);
    const boost::json::object description = runDescription();
    outcome.RunSeconds =
        recording.isLive() ? description.at("StopAfter").to_number<double>() * 1e-3 : outcome.Seconds;
    outcome.NumRead = description.at("NumRecs").to_number<uint64_t>();
    outcome.StopReason = description.at("StopReason").as_string();
    outcome.Losses = lossesNow();
    outcome.Ended = true;
    return outcome;
}

Outcome outcomeSoFar(double seconds)
{
    Outcome outcome;
    outcome.NumRead = runDescription().at("NumRecs").to_number<uint64_t>();
    outcome.Seconds = seconds;
    outcome.Losses = lossesNow();
    return outcome;
}

namespace {

// An instrument stops its own histogram also at a count that it was given.
bool isWholeLiveRun(const Recording &recording, const Outcome &outcome)
{
    if (outcome.Signal != 0) return false;
    const bool isFull = recording.MeasMode == 0 && outcome.StopReason == "OverFlow";
    return !outcome.Reached.empty() || isFull || outcome.StopReason == "TimeOver";
}

// True: something was lost.
bool warnOfLosses(const Outcome &outcome)
{
    for (const std::string &line : lossLines(outcome.Losses)) warn(line);
    return !outcome.Losses.isClean();
}

int reportLive(const Recording &recording, const Outcome &outcome)
{
    const bool lost = warnOfLosses(outcome);
    if (outcome.Signal != 0) {
        const bool hadEnd = recording.RunForMs != longestRunMs;
        note(fmt::format("stopped after {}{}", counted(outcome.NumRead, "record"),
                         hadEnd ? "; the result is partial" : ""));
        return exitCodeOfSignal(outcome.Signal);
    }
    if (!outcome.Reached.empty()) note(fmt::format("ended at {}", visibleText(outcome.Reached)));
    if (isWholeLiveRun(recording, outcome)) return static_cast<int>(lost ? Exit::DataLost : Exit::Success);
    warn(fmt::format("the run ended with the stop reason {}", visibleText(outcome.StopReason)));
    return static_cast<int>(Exit::DataLost);
}

} // namespace

int reportOutcome(const Recording &recording, const Outcome &outcome)
{
    if (recording.isLive()) return reportLive(recording, outcome);
    const std::string fault = endingFault(recording);
    if (!fault.empty()) warn(fault);
    bool lost = warnOfLosses(outcome) || !fault.empty();
    if (outcome.Signal != 0) {
        note(fmt::format("stopped after {} of {}; the result is partial", outcome.NumRead,
                         counted(recording.NumRecords, "record")));
        return exitCodeOfSignal(outcome.Signal);
    }
    if (outcome.NumRead < recording.NumRecords) {
        warn(fmt::format("only {} of {} read ({})", outcome.NumRead, counted(recording.NumRecords, "record"),
                         visibleText(outcome.StopReason)));
        lost = true;
    }
    // A replay that ends by itself leaves the stop reason of the recording; another one is the replay's own.
    if (recording.Description.at("StopReason").as_string() != outcome.StopReason) {
        warn(fmt::format("the run ended with the stop reason {}", visibleText(outcome.StopReason)));
        lost = true;
    }
    return static_cast<int>(lost ? Exit::DataLost : Exit::Success);
}

boost::json::object outcomeJson(const Recording &recording, const Outcome &outcome)
{
    boost::json::object keys = {{"recordsRead", outcome.NumRead},
                                {"recordsInFile", nullptr},
                                {"recording", nullptr},
                                {"complete", outcome.Ended && isWholeLiveRun(recording, outcome)},
                                {"stopReason", nullptr}};
    if (outcome.Ended) keys["stopReason"] = outcome.StopReason; // null while the run goes on
    if (!recording.isLive()) {
        const bool isWhole = outcome.Ended && outcome.Signal == 0 && outcome.NumRead == recording.NumRecords;
        keys["recordsInFile"] = recording.NumRecords;
        keys["recording"] = endingText(recording.Ending);
        keys["complete"] = isWhole && recording.Ending == Ending::Closed;
    }
    addLosses(keys, outcome.Losses);
    return keys;
}

} // namespace Tessel::Cli
