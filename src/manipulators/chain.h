// The chain of a device: adding and ending stages, the numbers of their channels, and the locks that let a
// rearrangement find every stage at a safe point.
#pragma once

#include "records/refs.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace Tessel {

// All locks of a chain: PipelineLock, every record's Lock in vector order, ManisLock. Whoever holds them
// changes the vector by `append` and `remove` alone, so that every record in it is locked. Allocates nothing
// but room for a record that is appended.
class ChainLocks
{
public:
    explicit ChainLocks(MeasContext &context);
    ~ChainLocks();
    ChainLocks(const ChainLocks &) = delete;
    ChainLocks &operator=(const ChainLocks &) = delete;

    void append(std::shared_ptr<Manipulator> record);
    void remove(const std::shared_ptr<Manipulator> &record);

private:
    MeasContext &context;
};

struct LockedRecord
{
    std::shared_ptr<Manipulator> record; // null: there is none
    std::unique_lock<std::mutex> lock;
};

// Passes through PipelineLock and returns with the lock of the record that `pick` names under it. The record's
// lock is taken while PipelineLock is held, so that no rearrangement comes between; a busy record is waited for
// outside, so that one slow record doesn't stop the others' turns.
template <class Pick>
LockedRecord passAndLock(MeasContext &context, Pick pick)
{
    for (;;) {
        std::shared_ptr<Manipulator> record;
        {
            std::lock_guard pass(context.PipelineLock);
            record = pick(context.Manis);
            if (!record) return {};
            std::unique_lock lock(record->Lock, std::try_to_lock);
            if (lock) return {std::move(record), std::move(lock)};
        }
        std::lock_guard untilFree(record->Lock);
    }
}

// The record that takes what this one writes; the one that the stream enters; the final record of a run, also
// when a stage that came meanwhile stands behind it.
LockedRecord lockNext(MeasContext &context, const Manipulator &writer);
LockedRecord lockFirst(MeasContext &context);
LockedRecord lockLast(MeasContext &context);
std::unique_lock<std::mutex> lockOwn(MeasContext &context, const std::shared_ptr<Manipulator> &own);

// The records as they stand now.
std::vector<std::shared_ptr<Manipulator>> chainOf(MeasContext &context);
// One of them; null where there is none. Allocates nothing.
std::shared_ptr<Manipulator> recordAt(MeasContext &context, size_t index);

// What a host is told of the number of channels. Each stage that is ended takes one off, whatever it made, so
// that it can be too small, even negative, until a stage is added.
int64_t toldChans(const Device &device, const MeasContext &context);
// Rows of a result: sync, inputs and the chain's channels; 0 if the device isn't initialised.
uint64_t numAllChans(const Device &device, const MeasContext &context);

// A stage has failed in a run: aborts the run and tells the log. No lock is held.
void failPass(const StageRef &stage, const char *why) noexcept;

// Numbers channels and links records anew; every lock of the chain is held. Results of a live run follow.
void rearrange(Device &device, MeasContext &context);

// Appends a stage and starts its thread; every lock of the chain is held. The record has its type and
// parameters; `nameFormat` takes the number of rows before it or, where it makes no channels, of inputs, sync
// and stages before it. False, with an error in the log, if the stream would have too many channels.
bool addStage(ChainLocks &locks, const DeviceRef &target, std::shared_ptr<Manipulator> record,
              std::string_view nameFormat, std::function<void(StageRef)> threadFunction);

// Asks a stage to end its pass, the thread too with `exit`. True: it has entered the run and will leave it.
bool askToStop(MeasContext &context, Manipulator &record, bool exit);
// The stage has left the run, or can't any more.
bool hasLeft(const Manipulator &record);

// Asks each stage in turn to end its pass, the thread too with `exit`, and calls `wait` for those that have
// entered the run; then frees its store. Allocates nothing.
void stopManipulators(const DeviceRef &target, bool exit, const std::function<void(Manipulator &)> &wait);
// Waits without a bound: for `stopManipulators`.
void waitLeft(Manipulator &record);

// Ends the thread of one stage. The record stays in its place and the chain isn't rearranged.
void endStage(const DeviceRef &target, uint32_t index);

// Ends and removes all stages. A live run goes on without them.
void removeStages(const DeviceRef &target);

} // namespace Tessel
