// The seam to where record words come from: a recorded file or an instrument. MeasureThread opens, starts,
// reads and stops it. Who takes the words, and how many do, doesn't matter to the source.
#pragma once

#include "log/file_handle.h"
#include "records/device.h"
#include "records/facts.h"

#include <cstdint>
#include <span>

namespace Tessel {

// The most that one read takes.
inline constexpr uint64_t chunkWords = 1048576;

// MeasureThread's own, for the length of a run.
struct RecordSource
{
    DeviceType Kind = DeviceType::None;
    bool Started = false, Stopped = false;

    // Of an instrument.
    bool Lost = false;         // a read has failed: there is no other
    bool TimerRunning = false; // the acquisition timer was seen running
    int32_t TimerStatus = 0;   // 1: it has run out

    // Of a file.
    FileHandle File{};
    uint64_t ReadPos = 0; // offset of the next record
    uint64_t FileEnd = 0; // size
};

struct Reading
{
    uint64_t Words = 0;   // read, to the front of the room
    bool Failed = false;  // the source is lost
    bool AtEnd = false;   // nothing more will come
    bool IsFull = false;  // too much waits: nothing was read
    bool HasMore = false; // the read took all that one can: more is there already
};

// What stages and counters know of the device.
StreamFacts factsOf(const Device &device);

// If a file can't be opened, the first read fails.
RecordSource openSource(const Device &device);
// At the first pass of a run. False: it doesn't start.
bool startSource(RecordSource &source, Device &device, int32_t acqTimeMs);
// Reads up to chunkWords; there is room for them.
Reading readSource(RecordSource &source, Device &device, uint32_t *room);
// Of a file: what is left of it, and moving on past words that were read in another way.
uint64_t wordsLeft(const RecordSource &source);
void passOver(RecordSource &source, const Device &device, uint64_t words);
// Takes effect once in a run. After it an instrument still gives what it has.
void stopSource(RecordSource &source, Device &device);

} // namespace Tessel
