// One measurement on a recording, from its options to its result: the steps that all measuring commands share.
// A command passes its own steps as functions.
#pragma once

#include "chain/placed_chain.h"
#include "commands/updates.h"
#include "program/instrument.h"
#include "program/new_recording.h"
#include "program/options.h"
#include "program/plot.h"
#include "program/replay.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

struct MeasureOptions
{
    std::string File;                     // the recording that is measured, of those below
    std::vector<std::string> Files;       // that were named
    const CLI::App *Command = nullptr;    // of a measurement that a job can ask for
    std::string For, Mode;                // of an instrument; empty: as --help says
    bool CountsDtimes = false;            // T3: a dtime isn't made a time, unless by a chain
    bool RunsOn = false;                  // without For: until it is stopped
    std::vector<std::string> Assignments; // of its settings
    ChainOptions Chain;
    std::string RecordFile; // empty: what an instrument sends isn't recorded
    std::string RecordOption = "--record";
    UpdateOptions Updates;
    ResultOptions Result;
};

// --for, --mode and --set; `runsFor`: without --for.
void addInstrumentOptions(CLI::App &command, MeasureOptions &options, const std::string &runsFor);

// --record, and how to write: to standard output, to a file, as JSON, as a plot.
void addResultOptions(CLI::App &command, MeasureOptions &options);

// How long an instrument measures, the chain, and the options of the result.
void addMeasureOptions(CLI::App &command, MeasureOptions &options);

// The same, and the recordings, for a measurement that a job can ask for.
void addMeasurementOptions(CLI::App &command, MeasureOptions &options);

// The two channels of a correlation.
struct ChannelPair
{
    int First = 1, Second = 2;
};

// --chan1 and --chan2.
void addChannelPair(CLI::App &command, ChannelPair &channels);

// What was measured, and on what; before the run, Run is empty.
struct Measured
{
    Recording From;
    PlacedChain Chain;
    boost::json::object Job; // what was asked for; empty: nothing that a job can say
    Outcome Run;
    std::optional<NewRecording> Into; // that the run writes
    Recorded Written;                 // after the run, if it wrote one
    CountRates Rates;                 // after the run of an instrument
    std::vector<std::string> Notes;   // on the result: what to know before one relies on it
    boost::json::array Files;         // after the run: what the result says of its recordings
    bool DrawsLive = false;           // its picture stays on the terminal
    bool IsLookedAt = false;          // Notes and Files have what is known after the run
    boost::json::object SumRun;       // of results that were added up: of all runs together; else empty

    bool isSum() const { return !SumRun.empty(); }
};

// What a measurement function of the library takes beside its result.
struct RunStart
{
    int32_t AcqTimeMs;
    uint8_t Save; // 1: what the instrument sends is recorded
    uint8_t *Finished;
};

// What a command does, in the order in which it is called. The last three give one form of the result each,
// that of the last Take, and are called only if it is wanted.
struct Measurement
{
    std::function<void(const Recording &)> Prepare; // parameters and memory
    std::function<void(const RunStart &)> Start;
    std::function<void(bool hasEnded)> Take; // the present result: also while the run goes on
    std::function<bool()> IsEmpty;           // nothing was counted
    std::string_view Needs;                  // what there must be to count, for the warning if so
    std::function<std::string(const Measured &)> Csv;
    std::function<boost::json::object(const Measured &)> Json;
    std::function<Cli::Plot(const Measured &)> Plot;
    std::function<std::vector<std::string>(const Measured &)> Notes = nullptr; // after the run
    std::function<bool(const Recording &)> Fetch = nullptr; // what the run gives in blocks; true: there was one
    std::function<std::string()> Fault = nullptr; // after the run: why the result is none; empty: it is one

    // Of what can be added up: what Json gave becomes the present result, and is normalised.
    std::function<void(const boost::json::object &)> Load = nullptr;
    std::function<boost::json::object(const Measured &)> FileKeys = nullptr; // of one recording, for `files`
    std::function<std::vector<std::string>(const boost::json::array &files)> SumNotes = nullptr;
};

// The exit code.
int measure(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement);

// Prepares and runs it on the source, and warns of what there is to note.
Measured measureSource(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement);

// Writes and draws the result; gives the exit code, after `report` has said what became of the run.
int writeMeasured(const MeasureOptions &options, const Measurement &measurement, const Measured &measured,
                  const std::function<int()> &report);

// Throws Failure if a file of the result, or the `beside` it, is one that must stay.
void checkFiles(const MeasureOptions &options, const HostOptions &host, const std::string &beside = "");

// The recording, or the instrument, as the current device, with its chain. Throws Failure if it has no events
// to count.
Measured openForMeasuring(const MeasureOptions &options, const HostOptions &host);

// A plot that can't be drawn is an error only if nothing else is written.
void drawResult(const ResultOptions &options, const Plot &plot);

// The end of a measuring command's --help. JSON begins with the same keys everywhere, so only a command's own
// are given, one per line.
struct ResultHelp
{
    std::string_view About, Csv, Schema, Keys, Examples;
    bool HasUpdates = true; // --live and --json-lines
};
std::string helpText(const ResultHelp &help);

// How many records, how fast.
void noteSpeed(const Outcome &outcome);

// Nothing was counted; a value that is infinite or no number counts as none.
bool isAllZero(std::span<const uint32_t> counts);
bool isAllZero(std::span<const double> values);

// "decay.tgx, T3".
std::string plotTitle(const Recording &recording);

// Throws a usage Failure that names the option, unless the recording has a row for the channel.
void checkChannel(const char *option, int channel, const Recording &recording);
void checkChannels(const ChannelPair &channels, const Recording &recording);

} // namespace Tessel::Cli
