// `MeasContext`: the working record of a device: what outlives a run.
//
// Lock order of a device: PipelineLock, each record's Lock in vector order, ManisLock. StartLock and EndLock
// are taken before all of them. RunLock, and of a run ReadGate, RawLock and Control.Lock, are held for a look
// or a change; nothing else is taken under them.
#pragma once

#include "records/custom_tag.h"
#include "records/description.h"
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
    // How results are given out; set by the host at any time, seen by a live run.
    std::atomic<int32_t> SequenceMode{0}; // 0 none, 1 by time, 2 by count
    std::atomic<uint64_t> SequencePeriodPs{0};
    std::atomic<uint64_t> SequenceCount{0};
    std::atomic<bool> SequenceWait{false};

    std::mutex PipelineLock; // the chain: held while it is rearranged, passed through by every stage's turn
    std::mutex ManisLock;    // results against readers

    std::vector<std::shared_ptr<Manipulator>> Manis; // the chain; see manipulator.h for who may touch it
    std::atomic<uint64_t> ManisChans{0};             // channels that the chain makes

    MeasDescription Description;
    std::atomic<int32_t> SyncRate{0};
    std::array<std::atomic<int32_t>, 256> CountRates{}; // last rate of each input
    std::atomic<uint64_t> ResolutionPs{1};
    std::vector<CustomTag> CustomTags; // the host's thread

    MeasParams Params; // the host's thread; a run goes by a copy

    std::mutex RunLock;              // guards CurrentRun
    std::shared_ptr<Run> CurrentRun; // the live run, or the last one
    std::mutex StartLock;            // one start at a time
    std::atomic<int> Starts{0};      // runs that are being started and their import sources before them
    std::mutex EndLock;              // stages are ended and removed by one thread at a time
    std::atomic<bool> Closed{false}; // the device is gone: no run starts and no stage is added any more
};

} // namespace Tessel
