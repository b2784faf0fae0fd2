// `tessel import`: a recording made of columns of numbers. The table is read twice: once to see what is in it,
// once to write it.
#include "columns/time_order.h"
#include "commands/commands.h"
#include "commands/import_report.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/output.h"
#include "program/progress.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace Tessel::Cli {

namespace {

void stopIfInterrupted()
{
    if (interruptSignal() != 0) throw Interrupted();
}

void writeSorted(ImportFiles &files, TimeOrder &order)
{
    for (const TimedRow &row : order.Ready) addEvent(files, row.Time, row.Channel, row.Dtime);
    order.Ready.clear();
    writeWords(files);
}

// A block; only with --sort there is anything to sort.
void writeRows(ImportFiles &files, TimeOrder &order, const ScaledRows &rows)
{
    for (size_t i = 0; i < rows.From.Count; ++i) {
        const uint32_t channel = rows.From.Channels.empty() ? 0 : rows.From.Channels[i];
        const auto dtime = rows.Dtimes.empty() ? 0 : static_cast<uint32_t>(rows.Dtimes[i]);
        if (order.Span == 0)
            addEvent(files, rows.Times[i], channel, dtime);
        else
            addRow(order, {rows.Times[i], channel, dtime});
    }
    makeReady(order);
    writeSorted(files, order);
}

void writeTable(Imported &imported)
{
    Progress progress("write");
    TimeOrder order{.Span = imported.Found.LargestStep};
    ScaledRows rows;
    uint64_t events = 0;
    rewind(imported.Table);
    while (nextScaled(imported.Table, imported.Scaling, rows)) {
        stopIfInterrupted();
        writeRows(imported.Files, order, rows);
        events += rows.From.Count;
        showProgress(progress, fractionRead(imported.Table), events);
    }
    if (events != imported.Found.Events)
        throw Failure(Exit::Failed, fmt::format("{}: changed while it was read", imported.Table.Shown));
    finish(order);
    writeSorted(imported.Files, order);
}

// Of the first row; the table begins anew after it.
uint64_t firstTicks(EventTable &table)
{
    Rows rows;
    const uint64_t ticks = nextRows(table, rows) ? wholeTicks(rows.Times, 0) : 0;
    rewind(table);
    return ticks;
}

Survey seenTable(Imported &imported)
{
    Progress progress("read");
    Survey found = survey(imported.Table, imported.Scaling, [&](uint64_t events) {
        stopIfInterrupted();
        showProgress(progress, fractionRead(imported.Table), events);
    });
    if (found.Events == 0) throw Failure(Exit::Failed, fmt::format("{}: has no events", imported.Table.Shown));
    return found;
}

void import(Imported &imported, ImportOptions options)
{
    const auto start = std::chrono::steady_clock::now();
    newRecording(options.Path, options.Force); // before the source is read
    options.Table.Folder = std::filesystem::absolute(behindLinks(options.Path)).parent_path();
    EventTable &table = imported.Table = openTable(options.Table);
    takeHints(options, table);
    imported.Units = unitsOf(options, table);
    if (imported.Units.MeasMode == 2) dropMicrotimes(table);
    imported.Scaling = scalingOf(imported.Units, table);
    if (options.FromFirst) imported.Scaling.Times.OriginTicks = firstTicks(table);
    imported.Found = seenTable(imported);
    checkOrder(options, imported.Units, table, imported.Found);
    setShift(imported.Scaling.Times, options, imported.Units, imported.Found);
    imported.Files.IsT3 = imported.Units.MeasMode == 3;
    imported.Files.Map = mapOf(options, imported.Found);
    createFiles(imported.Files, options, imported.Units, imported.Found, imported.Found.Latest);
    writeTable(imported);
    seal(imported.Files);
    imported.Seconds = secondsSince(start);
}

void checkOptions(const ImportOptions &options)
{
    if (options.Table.Source.empty() && options.Table.Times.empty())
        throw Failure(Exit::Usage, "what to import? SOURCE, or --times FILE (see tessel import --help)");
    if (!options.Table.Raw.empty() && options.Table.Source.empty())
        throw Failure(Exit::Usage, "--raw says what SOURCE holds; a file of its own says it as FILE:u64");
}

int runImport(const ImportOptions &options, const HostOptions &host)
{
    checkOptions(options);
    const Session session(host);
    checkOutputs({host.IniPath, options.Table.Source, options.Table.Times, options.Table.Channels,
                  options.Table.Microtimes},
                 {{"OUT", options.Path}}, true);
    const InterruptWatch watch;
    Imported imported;
    try {
        import(imported, options);
    } catch (const Interrupted &) {
        note("stopped; no recording was made");
        return exitCodeOfSignal(interruptSignal());
    }
    noteImport(imported);
    if (options.Json) writeResult("", jsonText(importJson(imported)));
    return 0;
}

constexpr const char *importFooter =
    R"(SOURCE is
  a text     a line per event, columns with commas, semicolons, tabs or blanks between them; a first line
             may name them; lines with # or % are comments. Numbers may have decimals and exponents.
  NPY        one axis: the times alone; two axes or fields: the columns
  numbers    of a file whose name ends in .u64, .i64, .u32, .u16, .u8, .f64 ...: the times alone, little-
             endian; with --raw TYPES rows of several: --raw u64,u8 is what unfold --binary writes in T2,
             --raw t3,u8 in T3
  -          standard input, any of these
--times, --channels and --microtimes name columns of SOURCE, by name or by number from 1, and without
them the usual names (time, channel, dtime) are found, or times and channels are the first two. Where
SOURCE is the times alone, or not given, they name files: NPY, or numbers, as the ending of the name
says, or else FILE:u32. Without channels all events are on one.

T2: --tick is what a recorded 1 is, by default 1 ps, or what a name as time_ns says. The recording has
times in whole ticks if these are whole picoseconds and the source has no decimals, else in whole
picoseconds; --resolution takes another unit.
T3: times are numbers of syncs, --sync-period or --sync-rate their distance. --microtime-unit is what
a microtime of 1 is, and the unit of the dtimes; a coarser --resolution if there are more than 32767.
Any of them may be a fraction, and is used as it stands: 17.857ps, 25ns/4096, 2.5ns/140, 2^-20s, 80MHz.
What was rounded, and by how much at most, is said. A recording whose first event is at 0 begins one
tick later, one sync in T3, since some measurements take 0 for no time; that is said too. --keep-zero
leaves it there. --from-first has times count from the first row, as absolute times of a day may need.

Channels: recorded numbers stay inputs, 1 to 64; with a 0 among them all go up by 1. --sync takes one
as the sync of T2. --map says it all: --map 1=1,2=2,5=sync; --map 0,8,1,9 makes them inputs 1 to 4;
--map 0-3=10,7=marker1; --map 64-127 takes these alone; --map codes are the channels of unfold. More
than 64 inputs go into OUT-1.tgx, OUT-2.tgx and so on, 64 each; a sync is in each of them.

Rows have to be in order of time; equal times are. --sort puts them in order: exactly, in memory for
the rows of the largest step back, which for a file that isn't sorted at all are all of its rows.
--sort=TIME refuses a larger step.

The source is read twice, in bounded memory; what comes through a pipe is kept beside OUT meanwhile,
in a file without a name. OUT is there when it is whole.

JSON (--json): schema (tessel.import/1), mode, events, leftOut (events), files [{file, inputs, records,
channels [{recorded, name, input, events}]}], tick, resolution (texts), largestRoundingPs, originTicks
(taken off), shiftTicks (added), shiftUnits (added, of the resolution), rowsBack (that had to be
sorted), largestStepBackPs, notes.

Examples:
  tessel import own.tgx events.csv --tick 1ns
  tessel import own.tgx --times timestamps.u64 --channels channels.u8 --map 1=1,2=2,5=sync
  tessel import own.tgx times.npy --channels channels.npy --tick 2^-20s
  tessel import own.tgx --times nsync.u64 --channels chan.u8 --microtimes micro.u16 \
      --sync-rate 80MHz --microtime-unit 25ns/4096
  tessel unfold run.tgx --from 1s --to 2s | tessel import second.tgx -)";

CLI::Option *addText(CLI::App &command, const char *name, std::string &value, const char *help,
                     const char *type)
{
    return command.add_option(name, value, help)->type_name(type);
}

void addColumnOptions(CLI::App &command, TableOptions &table)
{
    addText(command, "SOURCE", table.Source, "What to read; - for standard input", "");
    addText(command, "--times", table.Times, "Column of the times, or a file of them", "COLUMN");
    addText(command, "--channels", table.Channels, "Column of the channels, or a file of them", "COLUMN");
    addText(command, "--microtimes", table.Microtimes, "T3: column of the microtimes, or a file of them",
            "COLUMN");
    addText(command, "--raw", table.Raw, "SOURCE is rows of numbers of these types, little-endian", "TYPES");
}

void addUnitOptions(CLI::App &command, ImportOptions &options)
{
    asOneOf(
        addText(command, "--mode", options.Mode, "By default T3 if there are microtimes or a sync period", ""),
        {"t2", "t3"});
    addText(command, "--tick", options.Tick, "T2: what a time of 1 is [ps]", "PERIOD");
    addText(command, "--sync-period", options.SyncPeriod, "T3: from a sync to the next [ps]", "PERIOD");
    addText(command, "--sync-rate", options.SyncRate, "T3: the same as a rate", "RATE");
    addText(command, "--microtime-unit", options.MicrotimeUnit, "T3: what a microtime of 1 is [ps]", "PERIOD");
    addText(command, "--resolution", options.Resolution,
            "Unit of the times (T2) or dtimes (T3) of the recording [ps]", "PERIOD");
}

void addChannelOptions(CLI::App &command, ImportOptions &options)
{
    addText(command, "--map", options.Map, "What recorded channels become", "MAP");
    asNumber(command.add_option("--sync", options.Sync, "T2: the recorded channel that is the sync"), 0,
             mostChannels - 1);
    asNumber(command.add_option("--inputs", options.Inputs, "The recording has at least so many inputs"), 1,
             inputsPerFile);
}

} // namespace

Command addImport(CLI::App &program)
{
    const auto options = std::make_shared<ImportOptions>();
    CLI::App *command = program.add_subcommand("import", "Make a recording of columns: text, NPY, numbers");
    addText(*command, "OUT", options->Path, "The recording to write (.tgx)", "")->required();
    addColumnOptions(*command, options->Table);
    addUnitOptions(*command, *options);
    addChannelOptions(*command, *options);
    command->add_flag("--sort", options->Sort,
                      "Put rows in order; --sort=TIME only if they go back no further");
    command->add_flag("--from-first", options->FromFirst,
                      "Times count from the first row, in whole ticks or syncs");
    command->add_flag("--keep-zero", options->KeepsZero, "Leave a first event at a time of 0 where it is");
    addText(*command, "--comment", options->Comment, "Comment in the header of the file", "TEXT");
    command->add_flag("--json", options->Json, "Write what was imported as one JSON object");
    command->add_flag("--force", options->Force, "Replace OUT if it is there already");
    command->footer(importFooter);
    return {command, [options](const HostOptions &host) { return runImport(*options, host); }};
}

} // namespace Tessel::Cli
