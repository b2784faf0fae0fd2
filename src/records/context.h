// `MeasContext`: what a device keeps from run to run.
//
// Lock order of a device: StartLock or EndLock, PipelineLock, each stage's Lock in chain order, ManisLock. Last
// of all, and one at a time, RunLock, ParamsLock and a run's ReadGate, RawLock and Control.Lock: they are held
// for a look or a change.
#pragma once

#include "records/custom_tag.h"
#include "records/description.h"
#include "records/event_filter.h"
#include "records/links.h"
#include "records/manipulator.h"
#include "records/params.h"
#include "records/run.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Tessel {

struct MeasContext
{
    // How results are published; the host sets it at any time, and a live run sees it.
    std::atomic<int32_t> SequenceMode{0}; // 0 none, 1 by time, 2 by count
    std::atomic<uint64_t> SequencePeriodPs{0};
    std::atomic<uint64_t> SequenceCount{0};
    std::atomic<bool> SequenceWait{false};

    std::mutex PipelineLock; // the chain: held while it is rearranged; every turn of a stage passes through it
    std::mutex ManisLock;    // results, and blocks of events, against readers

    std::vector<std::shared_ptr<Manipulator>> Manis; // the chain; guarded like the "chain" fields of a stage
    std::atomic<uint64_t> ManisChans{0};             // channels that the chain makes

    MeasDescription Description; // of the last run; see there
    std::atomic<int32_t> SyncRate{0};
    std::array<std::atomic<int32_t>, 256> CountRates{}; // last rate of each input
    std::atomic<uint64_t> ResolutionPs{1};              // as the opened file says
    std::vector<CustomTag> CustomTags;                  // ParamsLock

    LossReport FileLosses; // of a recorded file, as it says beside itself; constant after opening

    std::mutex ParamsLock; // guards the host's parameters and tags; nothing is taken under it
    MeasParams Params;     // a run goes by a copy

    MainFilter Filter; // the host's thread

    std::mutex RunLock;              // guards CurrentRun
    std::shared_ptr<Run> CurrentRun; // the live run, or the last one
    std::mutex StartLock;            // one start of a run at a time
    std::atomic<int> Starts{0};      // calls that are starting a run, from their import sources on
    std::atomic<int> Removals{0};    // calls that clear the chain: a stage that is gone may still stand in it
    std::mutex EndLock;              // one thread at a time ends and removes stages
    std::atomic<bool> Closed{false}; // set with StartLock: no run starts and no stage is added any more

    Tessel::Links Links; // what serves the device, and what reaches it
};

} // namespace Tessel
