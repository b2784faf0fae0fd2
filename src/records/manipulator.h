// `Manipulator`: the record of one stage of a device's chain.
#pragma once

#include "records/event_store.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Tessel {

enum class ManisType : uint32_t {
    Nothing = 0,
    Store = 1,
    Coincidence = 2,
    Merge = 3,
    Delay = 4,
    Herald = 5,
    CountRate = 6,
    SubStream = 7,
    ImportStream = 8,
    Sort = 9,
};

// Shared by the chain of its device and by its own thread, which may go on after it has left the chain.
// "Chain": written with PipelineLock, every stage's Lock and ManisLock held, read under any one of them.
struct Manipulator
{
    // Constant once the stage is in the chain.
    std::string Name;
    ManisType Type = ManisType::Nothing;
    std::vector<uint8_t> InChans;
    std::vector<uint64_t> Params; // times of the stage
    std::vector<int32_t> Params2; // chain for CountRate, constant otherwise
    uint32_t CoincMode = 0, TimeMode = 0;
    std::string SourceId;
    bool KeepFlag = false;

    std::atomic<bool> Enabled{true};
    std::atomic<int32_t> Index{0}; // position in the chain
    int32_t ChainIndex = 0;        // chain; of stage k: position of the k-th enabled stage
    int32_t NextIndex = 0;         // chain; position of the stage that this one writes to
    std::vector<uint8_t> OutChans; // chain

    std::atomic<bool> StopFlag{false};      // end this run's pass once drained
    std::atomic<bool> StartedFlag{false};   // the stage has entered the run
    std::atomic<bool> StoppedFlag{false};   // the stage has left the run
    std::atomic<bool> ExitFlag{false};      // end the thread
    std::atomic<bool> ThreadGone{false};    // the thread has ended, or never was
    std::atomic<bool> SourceChanged{false}; // ImportStream: the source has events, room or an end
    std::thread Thread;                     // set as the stage is added, ended with EndLock

    std::mutex Lock;                 // guards what follows
    std::condition_variable Changed; // events came or were taken, or a flag of the stage or its run was set
    EventStore Events;               // what arrived for this stage; arrays exist during a run only
    uint64_t HighWater = 0;          // fill level at which `Events` counts as full for live data
    bool ClearFlag = false;          // the stage resets its own state
    std::vector<float> Rates;        // CountRate: per channel, 1/s
};

} // namespace Tessel
