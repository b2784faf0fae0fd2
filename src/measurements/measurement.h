// The result of a run: one alternative for each kind of measurement. What a kind is stands in its own file;
// here is what a run asks of any kind.
#pragma once

#include "measurements/correlation.h"
#include "measurements/histogram.h"
#include "measurements/histogram_2d.h"
#include "measurements/raw.h"
#include "measurements/side_by_side.h"
#include "measurements/time_trace.h"
#include "measurements/unfold.h"

#include <functional>
#include <memory>
#include <variant>

namespace Tessel {

struct MeasResult
{
    std::variant<RawWords, Histogram, Histogram2d, TimeTrace, Correlation, UnfoldEvents> Kind;
};

// Of a run that has this kind of result.
template <class Kind>
Kind &resultAs(Run &run)
{
    return std::get<Kind>(run.Result->Kind);
}

// The result that the request asks for, not sized yet; null: there is no such kind.
std::shared_ptr<MeasResult> resultOf(const RunRequest &request);

// Prepares the result of a new run, on the caller's thread, before any other thread can see the run.
void beginResult(Run &run);

// What the caller's array must be; all 0 if the kind has no such array, or if it would be too large.
ResultShape shapeOf(const Run &run);

// Whether the kind publishes a result that grows during the run.
bool hasResult(const Run &run);

// Empties the caller's result and notes its size, at the start of a run. ManisLock is held. False, with an
// error in the log, if there can be no such result.
bool sizeResult(RunRef &run);

// Whether the run's parameters can be measured with; false, with an error in the log.
bool checkParams(const RunRef &run);

// Makes what the run counts with. ManisLock is held. False, with an error in the log: there is no memory for
// it.
bool makeWork(RunRef &run);

struct MeasurementThread
{
    const char *Name;
    std::function<void(RunRef)> Body; // null: the kind has none
};
MeasurementThread threadOf(Run &run);

// What the run's file is counted with side by side.
SideBySide sidesOf(RunRef &run, Slices &all);

// Writes what was counted to the caller's result, if that isn't counted into directly. ManisLock is held.
void giveOutResult(Run &run);

// Every lock of the chain is held.
void zeroResult(Run &run);

} // namespace Tessel
