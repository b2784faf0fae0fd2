// The data file of a run that records: a header, the words as ProcessThread takes them, then the header again
// with the final values. WriteFileThread writes, so neither reading nor decoding ever waits for a disc.
//
// ProcessThread copies the words into blocks. WriteFileThread takes all blocks by exchanging two lists and
// gives each back once it is written, so a block is only allocated while the disc falls behind. The file is an
// exact beginning of the run's words, unless the disc was so slow that words found no room.
#pragma once

#include "datafiles/header_writer.h"
#include "log/file_handle.h"
#include "records/refs.h"

#include <atomic>
#include <cstdint>
#include <span>
#include <thread>
#include <vector>

namespace Tessel {

struct FileBlock
{
    PageArray<uint32_t> Words;
    uint64_t Count = 0;
};

// All gates are the run's FileGate.
struct RunFile
{
    HeaderInWork Header{};  // made by the host's thread, then MeasureThread's; path and length constant
    FileHandle File{};      // WriteFileThread's while there is one, else MeasureThread's
    bool IsTaking = false;  // words are taken; guarded by the gate
    bool WriteDone = false; // nothing more comes; guarded by the gate
    std::vector<FileBlock> FileBuffer{};  // filled, the last one in part; guarded by the gate
    std::vector<FileBlock> Free{};        // guarded by the gate
    uint64_t Blocks = 0;                  // all that there are; guarded by the gate
    std::vector<FileBlock> WriteBuffer{}; // WriteFileThread's
    uint64_t Written = 0;                 // words in the file; WriteFileThread's while there is one
    std::atomic<bool> Failed{false};      // an error was logged; nothing more is written
    std::atomic<bool> IsGivenUp{false};   // what waits is dropped
    bool FileTooBigLogged = false;        // ProcessThread's
    std::thread Writer{};                 // MeasureThread's
    bool HasHung = false;                 // MeasureThread's; the file is left to the thread
    std::atomic<bool> WriterDone{false};
};

// Gives a run that is to be recorded its file, under a name that was free. On the thread that starts the run.
void makeFile(const DeviceRef &target, Run &run);

// Writes the opening header and starts WriteFileThread. MeasureThread, as all below but keepWords. A failure is
// logged, and the run goes on.
void beginFile(RunRef &ref);

// Copies the words for the file; those that it can't keep are noted as lost. ProcessThread; allocates nothing
// as long as the disc keeps up.
void keepWords(RunRef &ref, std::span<const uint32_t> words);

// Waits until all words are in the file. ProcessThread has ended.
void endWriting(RunRef &ref);

// Writes the final header and closes the file.
void closeFile(RunRef &ref);

} // namespace Tessel
