// Counting a recorded file side by side: what each of several threads does, from its first slice to its last,
// and what a measurement gives for that.
//
// A worker, which belongs to one thread, has
//   reader                     its SliceReader
//   look(run, all, slice)    at once, whatever the others do
//   takeTurn(run, all, slice)  in the order of the file, while no other does; false: this slice and what
//                              follows goes the ordinary way. Without it a slice needs none of the others
//   count(run, all, slice)   at once again. It leaves early if the run is aborted
//   add()                      with ManisLock: what it has counted goes to the run's result, and starts anew
//   drop()                     with ManisLock: what it has counted is nothing any more
#pragma once

#include "measurements/slices.h"
#include "records/refs.h"
#include "threads/losses.h"
#include "threads/run_control.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace Tessel {

// What a run counts side by side with.
struct SideBySide
{
    struct Worker
    {
        std::function<void(RunRef &)> Body;
        const SliceReader *Reader;
    };
    std::vector<Worker> Workers{};    // for a thread each; none: the run goes the ordinary way
    bool TakesTurns = false;          // each slice needs those before it
    std::function<void()> HandOver{}; // with ManisLock, after them: what the next event needs is in the result
};

template <class Worker>
inline constexpr bool takesTurns = requires(Worker &worker, RunRef &run, Slices &all, Slice slice)
{
    worker.takeTurn(run, all, slice);
};

// The chain is `Store` alone, and the host wants no sequence. ManisLock is held.
inline bool isPlainRun(const MeasContext &context)
{
    return context.Manis.size() == 1 && context.SequenceMode == 0;
}

// Adds what a worker has counted to the result, unless the host has cleared that meanwhile.
template <class Worker>
void addCounted(RunRef &ref, Slices &all, Worker &worker, uint64_t &clearsSeen)
{
    Run &run = *ref.run;
    {
        std::lock_guard manis(ref.context.ManisLock);
        if (run.ClearRequested.exchange(false)) ++all.Clears;
        if (std::exchange(clearsSeen, all.Clears) == all.Clears)
            worker.add();
        else
            worker.drop();
        if (!isPlainRun(ref.context)) all.Closed = true;
    }
    run.NewData = true;
    wake(run.Control);
}

// False: the slice isn't counted.
template <class Worker>
bool countSlice(RunRef &ref, Slices &all, Worker &worker, const Slice &slice)
{
    worker.look(ref, all, slice);
    if constexpr (takesTurns<Worker>) {
        if (isAborted(*ref.run) || !awaitTurn(all.Counting, slice.Number)) return false;
        if (!worker.takeTurn(ref, all, slice)) return false;
        passTurn(all.Counting, slice);
    }
    worker.count(ref, all, slice);
    return !isAborted(*ref.run);
}

// Between two looks of a worker at the result it counts for so long, and for a multiple of what a look takes.
inline constexpr int64_t addIntervalNs = 20'000'000;
inline constexpr int64_t addShare = 20;

// A thread's whole work. What it throws ends the others.
template <class Worker>
void countSlices(RunRef &ref, Slices &all, Worker &worker)
{
    Run &run = *ref.run;
    uint64_t clearsSeen = 0; // at the start nothing is counted
    int64_t nextAdd = monotonicNs() + addIntervalNs;
    uint64_t number = 0;
    try {
        while (const auto slice = takeSlice(run, all, worker.reader)) {
            number = slice->Number;
            if (!countSlice(ref, all, worker, *slice)) {
                endSlices(all, number);
                break;
            }
            ref.context.Description.NumRecs += slice->Words.size();
            if (const uint64_t lost = std::exchange(worker.reader.Lost, 0); lost > 0)
                noteLoss(run, LossPlace::InvalidWords, lost);
            noteTaken(run);
            const int64_t now = monotonicNs();
            if (now < nextAdd) continue;
            addCounted(ref, all, worker, clearsSeen);
            nextAdd = monotonicNs() + std::max(addIntervalNs, addShare * (monotonicNs() - now));
        }
        addCounted(ref, all, worker, clearsSeen);
    } catch (...) {
        endSlices(all, number);
        throw;
    }
}

// As many workers as the run has threads, or as memory is there for.
template <class MakeWorker>
SideBySide workersOf(const RunRef &ref, Slices &all, MakeWorker makeWorker)
{
    using Worker = typename decltype(makeWorker())::element_type;
    SideBySide sides{.TakesTurns = takesTurns<Worker>};
    try {
        const uint64_t slices = (all.Words + sliceWords - 1) / sliceWords;
        for (uint64_t i = 0; i < std::min<uint64_t>(ref.run->Threads, slices); ++i) {
            auto worker = makeWorker();
            sides.Workers.push_back(
                {[&all, worker](RunRef &run) { countSlices(run, all, *worker); }, &worker->reader});
        }
    } catch (const std::bad_alloc &) { // with fewer, or in the ordinary way
    }
    return sides;
}

} // namespace Tessel
