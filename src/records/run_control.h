// How far a run is, and what is asked of it. A flag is never withdrawn and the phase only goes forward: a new
// run has a control of its own. threads/run_control.h sets them and waits for them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Tessel {

enum class RunPhase : uint32_t {
    SettingUp,    // stores and threads are made
    Measuring,    // every thread is up; stages may enter
    InputDone,    // nothing more is read
    ConsumersEnd, // the stages have drained; the measurement thread ends when its store is empty
    Closed,       // no thread but MeasureThread is left; no stage may enter
    Finished,     // the finished byte is written
    Over,         // nothing of the run is left to be done
};

struct RunControl
{
    std::mutex Lock; // held for a look or a change; nothing is taken under it
    std::condition_variable Changed;
    std::atomic<uint64_t> Wakes{0}; // goes up whenever a waiter has to look again; written with Lock

    std::atomic<RunPhase> Phase{RunPhase::SettingUp};
    std::atomic<bool> StopRequested{false}; // end the run, handing on what was read
    std::atomic<bool> StopByHost{false};    // the host asked: don't wait for a consumer that sleeps
    std::atomic<int64_t> StoppedAt{0};      // ns, monotonic, of that request
    std::atomic<bool> Aborted{false};       // end at once, without draining
};

} // namespace Tessel
