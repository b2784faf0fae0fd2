// The library from start to end, and a recorded file opened as a device: what every command shares.
#pragma once

#include "program/files.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct HostOptions
{
    bool Verbose = false;
    bool Quiet = false;
    bool LogsMessages = false;  // the log without its traces, for showLog() or applyIniText()
    std::string IniPath;        // empty: settings of the program's own
    int32_t Threads = 0;        // that count a recording; 0: one for each core, or as the settings file says
    bool Simulated = false;     // the simulated instruments beside the program, no others
    std::string SimulationPath; // what they are; empty: the standard one, or what the environment says
    std::string DeviceId;       // of an instrument; empty: the first that is free

    bool namesInstrument() const { return Simulated || !DeviceId.empty(); }
};

// initAPI at its start, exitAPI at its end. One at a time.
struct Session
{
    explicit Session(const HostOptions &options);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
};

// A row that a chain adds to every result.
struct MadeRow
{
    std::string Name, Column; // "Channel 3, merge 1+2", "ch3_merge"
};

// Whether the header knows of all that the file holds.
enum class Ending {
    Closed,
    NotClosed, // the header is as at the recording's start: it has no count
    CutShort,  // it counts more records than there are
};

constexpr int32_t longestRunMs = 360'000'000; // 100 hours

// Counts per second.
struct CountRates
{
    int32_t Sync = 0;
    std::vector<int32_t> Inputs;
};

// What is measured: a recording, or an instrument for a time.
struct Recording
{
    std::string Path;                         // of an instrument its id
    int32_t RunForMs = 0;                     // 0: a recording, to its end; the longest: until it is stopped
    std::shared_ptr<const LibraryPath> Known; // Path as the library has it
    boost::json::object Header;               // as tessel_getFileTags gives it
    boost::json::object Config;               // as getDeviceConfig gives it
    boost::json::object Description;          // as getMeasDescription gave it when the file was opened
    std::string Id;
    int64_t MeasMode = 0; // 2 T2, 3 T3
    double BaseResolutionPs = 0;
    double ResolutionPs = 0;     // of a T3 dtime or a T2 time tag, as the file was made; may have a fraction
    double UsedResolutionPs = 0; // as a replay takes it
    double SyncPeriodPs = 0;     // the mean; 0: unknown
    double MadePeriodPs = 0;     // T3: the sync period that the file was made with, as its header has it
    double UsedPeriodPs = 0;     // T3: that a replay goes by
    uint64_t NumRecords = 0;     // in the file
    int64_t ClaimedRecords = 0;  // by its header; -1: it doesn't say
    Cli::Ending Ending = Ending::Closed;
    int64_t NumRows = 0;             // of a result: sync, inputs and what a chain makes
    CountRates Rates;                // of an instrument, before it measures; of a file, as its header says
    std::vector<double> DeadTimesPs; // of the inputs; 0: off, or unknown
    std::vector<MadeRow> Made;       // the last of the rows: those of the chain

    bool isLive() const { return RunForMs > 0; }
};

// Throws Failure NoDevice if there is no file, or none that may be read.
void checkFile(const std::string &path);

// What the library said of the call before; empty: nothing.
std::string libraryError();

// What tessel_verifyFile says of a file, which reads all of it. `shown`: its name in a Failure.
boost::json::object fileReport(const std::string &path, const std::string &shown);

// Opens the file as the current device. Throws Failure NoDevice if it can't be one.
Recording openRecording(const std::string &path);

// The current device, an initialised instrument.
Recording liveRecording(int32_t runForMs);

// "T2", "T3", "histogram".
std::string modeText(int64_t measMode);

// "closed", "not closed", "cut short".
std::string_view endingText(Ending ending);

// What is wrong with it; empty if it is closed.
std::string endingFault(const Recording &recording);

// A text of tessel_getText, of the current device or of the one with the id, which it makes the current one.
boost::json::value libraryText(int32_t which, const std::string &id = "");

// Of the current device, now.
boost::json::object deviceConfig();
boost::json::object runDescription();

// "Sync", "Channel 1", "Channel 3, merge 1+2": the name of a row of a result.
std::string rowName(const Recording &recording, int64_t row);

// "sync", "ch1", "ch3_merge": the row's column in a CSV.
std::string columnName(const Recording &recording, int64_t row);

} // namespace Tessel::Cli
