// What can be told of a recorded file without a run: whether its header is whole and its own, and whether its
// records can be what an instrument sent. Reads the whole file, in blocks.
#pragma once

#include "datafiles/tag_reader.h"
#include "records/device.h"
#include "records/losses.h"
#include "stream/word_scan.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

enum class FileFault {
    Header,     // no header from the first tag to `Header_End`: all else is unknown
    Mode,       // neither T2 nor T3
    Foreign,    // most records can't come from this device
    Crc,        // the header isn't what was sealed
    NotClosed,  // the header is as at the recording's start: it counts no records
    CutShort,   // it counts more records than there are
    TooLong,    // it counts fewer
    PartRecord, // the file ends within a record
    EmptyEnd,   // it ends in zeros, as a power failure leaves them
    TimeUnit,   // nothing says how long a time tag or a sync period is
    Invalid,    // records of channels or kinds that the device hasn't got
    Order,      // events earlier than those before them
    Overflows,  // overflow records that don't move time on, or move it beyond the run's end
    FileError,  // the run that recorded it says that records are missing
    Losses,     // its side file says what else the run lost
};

struct Fault
{
    FileFault Kind{};
    std::string Text;
};

struct Verification
{
    std::string Path{};                // normal form
    std::string Header{};              // its bytes; empty: there is none
    uint64_t FileSize = 0;             // bytes
    std::optional<uint64_t> Claimed{}; // records by the header
    bool CountIsSettable = false;      // its tag has a value of its own
    uint64_t Records = 0;              // whole ones in the file, without an empty end
    uint64_t EmptyRecords = 0;         // zeros after them
    uint64_t PartBytes = 0;            // after the last whole record
    MeasMode Mode{};
    double UnitPs = 0; // of a T2 time tag; T3: the sync period; 0: unknown
    double RunMs = 0;  // as long as the run took or was to take; 0: unknown
    WordScan Words{};
    LossReport Losses{};         // by the side file
    std::vector<Fault> Faults{}; // in the order of FileFault
};

// Nothing, with an error in the log, if there is no file, or part of it can't be read.
std::optional<Verification> verifyFile(std::string_view path);

bool hasFault(const Verification &file, FileFault kind);

// Clean: no fault. Lossy: it can be replayed. Invalid: what a replay gives isn't what was measured.
Verdict verdictOf(const Verification &file);

// From the first record to the end of the last event; 0: unknown.
double durationPs(const Verification &file);

std::string verificationAsJson(const Verification &file);

// A tag and where it stands in the header.
struct PlacedTag
{
    TagRecord Tag;
    uint64_t Offset = 0;
};

// All tags of the header. Nothing if they don't lead from the preamble to a `Header_End` at its end.
std::optional<std::vector<PlacedTag>> tagsOf(std::string_view header);

// CRC-32 of a header as it stands in its last four bytes.
uint32_t storedCrc(std::string_view header);

} // namespace Tessel
