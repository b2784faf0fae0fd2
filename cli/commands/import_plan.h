// What `tessel import` is asked for: as typed, and as understood.
#pragma once

#include "columns/channel_map.h"
#include "columns/event_table.h"
#include "columns/survey.h"

#include <optional>
#include <string>

namespace Tessel::Cli {

// As typed; an empty text means the default.
struct ImportOptions
{
    std::string Path;
    TableOptions Table;
    std::string Mode, Tick, Resolution, SyncPeriod, SyncRate, MicrotimeUnit, Map, Comment;
    int Sync = -1;          // recorded number; -1: none
    int Inputs = 0;         // at least so many
    std::string Sort;       // "true": as far as is needed; else at most so far; empty: rows have to be in order
    bool FromFirst = false; // times count from the first row
    bool KeepsZero = false; // a first event at 0 stays there
    bool Force = false, Json = false;
};

// Of the recording, before anything of the rows is known.
struct ImportUnits
{
    int MeasMode = 2;
    Fraction TickPs;               // T2: of the recorded times; T3: the sync period
    Fraction ResolutionPs;         // T2: of a time tag; T3: of a dtime
    Fraction MicrotimePs = {1, 1}; // T3: of the recorded microtimes
    std::optional<Fraction> SortSpanPs;
};

// Options that the source doesn't have but says in its comments are taken from there. Throws a usage Failure.
void takeHints(ImportOptions &options, const EventTable &table);

// Throws a usage Failure, which names the option.
ImportUnits unitsOf(const ImportOptions &options, const EventTable &table);

Scaling scalingOf(const ImportUnits &units, const EventTable &table);

// By the options, or by what occurs.
ChannelMap mapOf(const ImportOptions &options, const Survey &found);

// Throws Failure, unless rows come in order or are to be sorted.
void checkOrder(const ImportOptions &options, const ImportUnits &units, const EventTable &table,
                const Survey &found);

// The first event becomes later, if its time is 0: by whole ticks, or by a unit of the recording if the times
// have fractions of a tick.
void setShift(NumberScaler &times, const ImportOptions &options, const ImportUnits &units, const Survey &found);

// Of times: a sync of the recording or a time tag, in ps.
double timeUnitPs(const ImportUnits &units);

} // namespace Tessel::Cli
