// How far a run is and what is asked of it. Every flag is set once and never withdrawn, the phase only goes
// forward: a new run has a control of its own. threads/run_control.h tells how they are set and waited for.
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
    ConsumersEnd, // the stages have drained: the measurement thread may end when its store is empty
    Closed,       // no thread but MeasureThread is left
    Finished,     // the finished byte is written
    Over,         // the run's last act
};

struct RunControl
{
    std::mutex Lock; // held for a look or a change; nothing is taken under it
    std::condition_variable Changed;
    std::atomic<uint64_t> Wakes{0}; // counts what there was to look at again; written with Lock

    std::atomic<RunPhase> Phase{RunPhase::SettingUp};
    std::atomic<bool> StopRequested{false}; // end the run, handing on what was read
    std::atomic<bool> StopByHost{false}; // the host asked for it: a consumer that sleeps is no reason to wait
    std::atomic<int64_t> StoppedAt{0};   // ns, monotonic, of that request
    std::atomic<bool> Aborted{false};    // end at once, without draining
};

} // namespace Tessel
