// The recording that a run of an instrument writes: where it goes, and what it became.
#pragma once

#include <cstdint>
#include <string>

namespace Tessel::Cli {

struct NewRecording
{
    std::string Shown; // the name as it was given
    std::string Path;  // absolute, behind links
};

// The place for a recording, checked as far as it can be before there is one. Nothing is written. Throws
// Failure: of usage, if a file is there already and isn't to be replaced, or the name isn't one for recordings.
NewRecording newRecording(const std::string &path, bool force);

// Just before the run: the library records there. A file that is to be replaced goes.
void giveToLibrary(const NewRecording &recording);

// Just before another file takes the place: what the library said of the one before goes.
void dropSideFile(const NewRecording &recording);

// What stands in the file.
struct Recorded
{
    std::string Path; // another than was asked for if somebody took that one at the last moment
    uint64_t NumRecords = 0, Bytes = 0;
    bool IsClosed = false; // its header counts all records
};

// After the run. A file that isn't there has no records and isn't closed.
Recorded recordedFile(const NewRecording &recording);

// Bytes of a file so far; 0: it isn't there.
uint64_t fileBytes(const std::string &path);

} // namespace Tessel::Cli
