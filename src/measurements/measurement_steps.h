// What a kind of measurement does at each point of a run. Each kind fills one table, at the end of its file;
// what it leaves out isn't done.
#pragma once

#include "records/refs.h"

#include <cstdint>

namespace Tessel {

struct SideBySide; // measurements/side_by_side.h
struct Slices;     // measurements/slices.h

// Of the caller's array.
struct ResultShape
{
    uint64_t Rows = 0, Columns = 0, ElementBytes = 0;
};

template <class Kind>
struct MeasurementSteps
{
    // On the caller's thread, before any other thread can see the run.
    void (*Begin)(Run &run, Kind &result) = nullptr;
    // What the caller's array must be, by the run's parameters. Left out: it is a block, of any size.
    ResultShape (*Shape)(const Run &run) = nullptr;
    // Notes the shape and empties the caller's array. ManisLock is held.
    void (*Size)(Run &run, Kind &result, const ResultShape &shape) = nullptr;
    // False, with an error in the log: a number that the measurement divides by is 0.
    bool (*Check)(const RunRef &run) = nullptr;
    // Makes what is counted with. ManisLock is held. False, with an error in the log: there is no memory for
    // it.
    bool (*Prepare)(RunRef &run, Kind &result) = nullptr;
    // The measurement thread, from its start to its end.
    const char *ThreadName = "";
    void (*Thread)(RunRef run, Kind &result) = nullptr;
    // What a recorded file is counted with side by side; left out, or without workers: it isn't.
    SideBySide (*Sides)(RunRef &run, Kind &result, Slices &all) = nullptr;
    // Writes what was counted to the caller's array, if that isn't counted into directly. ManisLock is held.
    void (*GiveOut)(Run &run, Kind &result) = nullptr;
    // Empties what was counted and the caller's array. Every lock of the chain is held.
    void (*Clear)(Kind &result) = nullptr;
};

// Whether raw times can be converted to picoseconds; false, with an error in the log.
bool hasTimeScale(const RunRef &run);

} // namespace Tessel
