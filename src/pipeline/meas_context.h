// `MeasContext`: what a device needs for its runs, and `Run`: one run with its buffers, threads and the
// caller's pointers.
//
// Lock order of a device: PipelineLock, each record's Lock in vector order, ManisLock, then the library's
// ResultLock. ReadGate, RawLock and RunLock are never held while one of these is taken. StartLock and EndLock
// are taken before all of them.
#pragma once

#include "datafiles/custom_tag.h"
#include "devices/meas_description.h"
#include "manipulators/manipulator.h"
#include "measurements/params.h"
#include "pipeline/event_store.h"
#include "pipeline/gate.h"

#include <array>
#include <atomic>
#include <chrono>
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

struct TimeTraceWork;
struct CorrelationWork;

// Shared by the threads of the run and by the MeasContext, which keeps the last run for its result.
struct Run
{
    explicit Run(const RunRequest &request, const MeasParams &params = {}, uint64_t numRows = 0,
                 uint64_t numBins = 0)
        : Request(request), Params(params), NumRows(numRows), NumBins(numBins)
    {
    }

    // As they were when the host asked for the run: what its arrays are made for.
    const RunRequest Request;
    const MeasParams Params;
    const uint64_t NumRows; // of a result with a row a channel
    const uint64_t NumBins; // columns of a histogram

    // The result; guarded by ManisLock.
    uint32_t *HistoData = nullptr;    // the caller's, or MovedHisto
    uint64_t HistoSize = 0;           // elements of HistoData
    std::vector<uint32_t> MovedHisto; // where a stage added during the run moved the result to
    uint64_t LastRefTime = 0;         // ps, of the last reference event; 0: none seen

    std::atomic<int64_t> LastPublish{0}; // ns, monotonic

    // MeasureThread hands over to ProcessThread under ReadGate; it allocates and frees both arrays.
    PageArray<uint32_t> ReadBuffer;    // guarded by ReadGate
    uint64_t ReadCount = 0;            // words in ReadBuffer; guarded by ReadGate
    PageArray<uint32_t> ProcessBuffer; // ProcessThread's
    uint64_t OverflowBase = 0;         // ProcessThread's
    uint32_t InvalidRecordCount = 0;   // ProcessThread's

    std::shared_ptr<TimeTraceWork> TimeTrace;     // guarded by ManisLock
    std::shared_ptr<CorrelationWork> Correlation; // guarded by ManisLock

    EventStore ImportBlock;           // what an importing device takes; guarded by ManisLock
    uint64_t UnfoldCountInternal = 0; // guarded by ManisLock
    uint64_t &unfoldCount() { return Request.UnfoldCount ? *Request.UnfoldCount : UnfoldCountInternal; }

    uint64_t RawCountInternal = 0; // guarded by RawLock
    uint64_t &rawCount() { return Request.RawCount ? *Request.RawCount : RawCountInternal; }

    // MeasureThread's.
    int32_t AcqTimeMs = 0;
    bool StartPending = true, StopIssued = false, TimerRunning = false;
    int InputFile = -1;
    std::thread Process, Measurement, CopyStore;

    // How far the run is; set by the thread concerned, read by any.
    std::atomic<uint64_t> Taken{0}; // batches that the consumer has taken: shows that the run moves
    std::atomic<bool> ProcessDone{false};
    std::atomic<bool> MeasurementDone{false};
    std::atomic<bool> CopyStoreDone{false};
    std::atomic<bool> Finished{false}; // the finished byte is written

    std::mutex OverLock;
    std::condition_variable OverSignal;
    bool Over = false; // guarded by OverLock; the run's last act
};

struct MeasContext
{
    // Requests to the run and its progress; set and read by any thread.
    std::atomic<bool> AbortRequested{false}; // end at once, without draining
    std::atomic<bool> ClearRequested{false}; // the measurement thread drops the rest of its batch
    std::atomic<bool> StopRequested{false};  // end the run
    std::atomic<bool> StopByHost{false};   // the host asked for it: a consumer that sleeps is no reason to wait
    std::atomic<bool> InputDone{false};    // nothing more is read
    std::atomic<bool> ConsumersEnd{false}; // the measurement thread may end when its store is empty
    std::atomic<bool> Measuring{false};    // threads are up and the run is live
    std::atomic<bool> NewData{false};      // the result has changed since it was last given out
    std::atomic<bool> LastData{false};     // the measurement thread has taken the last data
    std::atomic<bool> NewDataWait{false};  // a sequence waits for the host

    std::atomic<int32_t> SequenceMode{0}; // 0 none, 1 by time, 2 by count
    std::atomic<uint64_t> SequencePeriodPs{0};
    std::atomic<uint64_t> SequenceCount{0};
    std::atomic<bool> SequenceWait{false};

    std::mutex PipelineLock; // the chain: held while it is rearranged, passed through by every stage's turn
    std::mutex ManisLock;    // results against readers
    Gate ReadGate;           // ReadBuffer, ReadCount and their exchange
    std::mutex RawLock;      // the caller's raw block

    std::vector<std::shared_ptr<Manipulator>> Manis; // the chain; see manipulator.h for who may touch it
    std::atomic<uint64_t> ManisChans{0};             // channels that the chain makes

    MeasDescription Description;
    std::atomic<int32_t> SyncRate{0};
    std::array<std::atomic<int32_t>, 256> CountRates{}; // last rate of each input
    std::atomic<uint64_t> ResolutionPs{1};
    std::vector<CustomTag> CustomTags; // the host's thread

    MeasParams Params;

    std::mutex RunLock;              // guards CurrentRun
    std::shared_ptr<Run> CurrentRun; // the live run, or the last one
    std::mutex StartLock;            // one start at a time
    std::atomic<int> Starts{0};      // runs that are being started and their import sources before them
    std::mutex EndLock;              // stages are ended and removed by one thread at a time
    std::atomic<bool> Closed{false}; // the device is gone: no run starts and no stage is added any more

    std::shared_ptr<Run> currentRun()
    {
        std::lock_guard lock(RunLock);
        return CurrentRun;
    }
};

// False, without the gate, once the run is aborted: a stage that can't be ended keeps the gate.
inline bool acquireReadGate(MeasContext &context)
{
    while (!context.ReadGate.acquireFor(std::chrono::milliseconds(10)))
        if (context.AbortRequested) return false;
    return true;
}

} // namespace Tessel
