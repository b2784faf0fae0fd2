// `Run`: one measurement from its start to its finished byte: what was asked for, its buffers, its threads, its
// state. A new one is made at each start, so no run ever writes through the pointers of an earlier one.
#pragma once

#include "records/event_store.h"
#include "records/facts.h"
#include "records/losses.h"
#include "records/params.h"
#include "records/run_control.h"
#include "records/stream_order.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Tessel {

enum class MeasKind : uint32_t {
    None = 0,
    Raw = 1,
    Unfold = 2,
    TimeTrace = 4,
    Histogram = 8,
    Correlation = 16,
    ImportSource = 32,
    Histo2d = 64,
};

struct DeviceLookUp;
struct MeasResult; // measurements/measurement.h
struct RunFile;    // run/file_writer.h

// What an entry asks for. The pointers are the caller's, valid until the finished byte is 1.
struct RunRequest
{
    MeasKind Kind = MeasKind::None;
    uint32_t AcqTimeMs = 0;
    bool Blocking = false; // a caller waits for the finished byte
    bool SaveToFile = false;
    bool PrepareImports = true; // the sources of import stages are started first
    uint8_t *FinishedFlag = nullptr;
    uint32_t *HistoData = nullptr; // rows x columns, row = ChannelCode
    uint32_t *RawBlock = nullptr;
    uint64_t RawCapacity = 0;     // words that RawBlock takes; 0: no block
    uint64_t *RawCount = nullptr; // null: counted in the run

    uint64_t *UnfoldTimes = nullptr;
    uint8_t *UnfoldChannels = nullptr;
    uint64_t UnfoldCapacity = 0;     // events that the block takes
    uint64_t *UnfoldCount = nullptr; // null: counted in the run

    uint64_t *TraceFirstBin = nullptr; // absolute number of the trace's first bin
    double *CorrResult = nullptr;      // y values of a correlation
};

struct Manipulator;

// Counts in rows and columns, in the caller's array. Those of a run are guarded by ManisLock.
struct CountArray
{
    uint32_t *Data = nullptr;       // the caller's, or Moved
    uint64_t Rows = 0, Columns = 0; // no rows: there is no array
    std::vector<uint32_t> Moved{};  // where a stage added during the run moved the counts to
};

// A block of decoded events, from which they are taken: by the host, or by import stages of other devices.
struct EventBlock
{
    uint64_t *Times = nullptr;
    uint8_t *Channels = nullptr;
    uint64_t Capacity = 0;
    uint64_t *Count = nullptr;
    bool IsHosts = false; // the host's memory: the host's again once the run's Store is gone
};

// Shared by the threads of the run and by the MeasContext, which keeps the last run for its result.
struct Run
{
    // As they were when the host asked for the run. The caller's arrays have this shape.
    const RunRequest Request{};
    const MeasParams Params{};
    const DeviceLookUp *Devices = nullptr;
    StreamFacts Facts{};
    const uint64_t NumRows = 0; // of a result with a row for each channel
    const uint64_t NumBins = 0; // columns of a histogram
    const uint32_t Threads = 1; // with which a recorded file may be counted, and lags of FCS and FFCS

    RunControl Control{};
    Losses Ledger{};

    // What Request asks for: the result of its kind, made with the run. Each kind says its guard.
    std::shared_ptr<MeasResult> Result{};
    // The parts of it that the chain works on; guarded by ManisLock.
    CountArray *ChannelRows = nullptr; // counts with a row for each channel, which grow with the chain, or null
    EventBlock Offered{};              // what import stages of other devices take
    std::vector<std::shared_ptr<Manipulator>> Importers{}; // these stages
    std::condition_variable BlockTaken{};                  // waited for with ManisLock

    std::mutex RawLock{}; // guards the caller's block of words
    std::condition_variable RawTaken{};

    // Publishing the result.
    std::atomic<bool> NewData{false};        // it has changed since it was last published
    std::atomic<bool> PublishingEnds{false}; // CopyStoreThread is to end
    std::atomic<bool> LastData{false};       // the measurement thread has taken the last data
    std::atomic<bool> NewDataWait{false};    // a sequence waits for the host
    std::atomic<bool> ClearRequested{false}; // the measurement thread drops the rest of its batch
    std::atomic<int64_t> LastPublish{0};     // ns, monotonic; 0: never
    // Publishing changes what is counted on, so of a recorded file it is done batch by batch, whatever the
    // clock says, by the measurement thread alone. Set in the set-up.
    bool PublishesByBatch = false;

    // Order in time of the events as they were read; ProcessThread writes, and MeasureThread before the first
    // words.
    std::atomic<uint64_t> StepsBack{0};   // events earlier than the one before them
    std::atomic<uint64_t> LargestStep{0}; // ps; of an event, before the latest one so far

    std::atomic<bool> IsSorted{false}; // a Sort is in the chain
    std::atomic<uint64_t> Unsorted{0}; // events that came too late for its window; the stage writes

    // MeasureThread hands words over to ProcessThread. Three buffers of one size go round, each by exchange; a
    // recorded file is read into ReadBuffer itself and needs two.
    PageArray<uint32_t> FillBuffer{}; // MeasureThread's: an instrument writes here, while no gate is held
    uint64_t FillCount = 0;           // words in FillBuffer; MeasureThread's
    std::mutex ReadGate{};
    std::condition_variable ReadChanged{}; // words came or were taken, or the run is to end
    PageArray<uint32_t> ReadBuffer{};      // guarded by ReadGate; MeasureThread allocates and frees
    uint64_t ReadCount = 0;                // words in ReadBuffer; guarded by ReadGate
    uint64_t DroppedOverflows = 0;         // of words dropped before those in ReadBuffer; guarded by ReadGate
    PageArray<uint32_t>
        ProcessBuffer{};             // ProcessThread's; what follows is MeasureThread's before the first words
    uint64_t OverflowBase = 0;       // ProcessThread's
    uint32_t InvalidRecordCount = 0; // ProcessThread's
    StreamOrder Order{};             // ProcessThread's

    // The data file of a run that records, or null; constant once the run has begun.
    std::shared_ptr<RunFile> File{};
    std::mutex FileGate{};                 // nothing is taken under it
    std::condition_variable FileChanged{}; // words for the file came, or the run ends

    // MeasureThread's.
    int32_t AcqTimeMs = 0;
    std::thread Process{}, Measurement{}, CopyStore{};

    // Of a recorded file, which under a stop count is read no further than it is counted.
    uint64_t BatchesRead = 0;             // MeasureThread's
    std::atomic<uint64_t> BatchesDone{0}; // their ends have reached the measurement, or went where nobody takes
    std::atomic<bool> LosesEndsOfBatches{false}; // a stage was ended meanwhile

    // How far its threads are: each sets its own, any reads them.
    std::atomic<uint64_t> Taken{0};  // batches that the consumer has taken, a sign that the run moves
    std::atomic<int64_t> TakenAt{0}; // ns, monotonic, of the last of them
    std::atomic<bool> ProcessDone{false};
    std::atomic<bool> MeasurementDone{false};
    std::atomic<bool> CopyStoreDone{false};
};

} // namespace Tessel
