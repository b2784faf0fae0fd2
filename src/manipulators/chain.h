// The chain of a device: adding and ending stages, the numbers of their channels, and the locks with which a
// rearrangement finds every stage between two turns.
#pragma once

#include "records/refs.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace Tessel {

// All locks of a chain: PipelineLock, every stage's Lock in chain order, ManisLock. Whoever holds them changes
// the chain by these functions alone, so that every stage in it is locked. Only `append` allocates.
class ChainLocks
{
public:
    explicit ChainLocks(MeasContext &context);
    ~ChainLocks();
    ChainLocks(const ChainLocks &) = delete;
    ChainLocks &operator=(const ChainLocks &) = delete;

    void append(std::shared_ptr<Manipulator> record); // all or nothing
    // Takes a copy of the chain that has a stage more at its end.
    void extend(std::vector<std::shared_ptr<Manipulator>> longer) noexcept;
    void remove(const std::shared_ptr<Manipulator> &record);

private:
    MeasContext &context;
};

struct LockedRecord
{
    std::shared_ptr<Manipulator> record; // null: there is none
    std::unique_lock<std::mutex> lock;
};

// Returns with the Lock of the stage that `pick` names under PipelineLock. The Lock is taken while PipelineLock
// is held, so that no rearrangement comes between. A busy Lock is waited for outside, so that one slow stage
// doesn't stop the turns of the others.
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

// The stage that `writer` writes to; the stage that the stream enters; the Store of a run, also if a stage was
// added after it meanwhile.
LockedRecord lockNext(MeasContext &context, const Manipulator &writer);
LockedRecord lockFirst(MeasContext &context);
LockedRecord lockLast(MeasContext &context);
std::unique_lock<std::mutex> lockOwn(MeasContext &context, const std::shared_ptr<Manipulator> &own);

// The stages as they are now.
std::vector<std::shared_ptr<Manipulator>> chainOf(MeasContext &context);
// How many there are, and one of them, null where there is none. These allocate nothing.
size_t chainLength(MeasContext &context);
std::shared_ptr<Manipulator> recordAt(MeasContext &context, size_t index);

// The number of channels as a host gets it. Each stage that is ended takes one off, whatever it made, so it can
// be too small, even negative, until a stage is added.
int64_t toldChans(const Device &device, const MeasContext &context);
// Rows of a result: sync, inputs and the chain's channels; 0 if the device isn't initialised.
uint64_t numAllChans(const Device &device, const MeasContext &context);

// A stage has failed in a run: aborts the run and logs it. No lock is held.
void failPass(const StageRef &stage, const char *why) noexcept;

// Numbers channels and links stages anew, and moves the result of a live run if it has to grow: all or nothing.
// Every lock of the chain is held.
void rearrange(Device &device, MeasContext &context);

// Appends a stage, which has its type and parameters, and starts its thread; every lock of the chain is held.
// `nameFormat` takes the number of rows before the stage; for CountRate and SubStream, inputs + sync + stages
// before it. False, with an error in the log, if the stream would have too many channels. All or nothing: what
// it throws, it throws before the chain has changed.
bool addStage(ChainLocks &locks, const DeviceRef &target, std::shared_ptr<Manipulator> record,
              std::string_view nameFormat, std::function<void(StageRef)> threadFunction);

// Asks a stage to end its pass, and with `exit` its thread. True: it has entered the run and will leave it.
bool askToStop(MeasContext &context, Manipulator &record, bool exit);
// The stage has left the run, or can't any more.
bool hasLeft(const Manipulator &record);

// For each stage in turn: asks it to end its pass, and with `exit` its thread; calls `wait` if it has entered
// the run; frees its store. Allocates nothing.
void stopManipulators(const DeviceRef &target, bool exit, const std::function<void(Manipulator &)> &wait);
// The same for stages that were added, and entered, while the run was at its end.
void stopLatecomers(const DeviceRef &target, const std::function<void(Manipulator &)> &wait);
// A `wait` for stages of which the run is over: they have left it.
void waitLeft(Manipulator &record);

// Ends the thread of one stage. The stage keeps its place, and the chain isn't rearranged.
void endStage(const DeviceRef &target, uint32_t index);

// Ends and removes all stages. A live run goes on without them. Allocates nothing.
void removeStages(const DeviceRef &target);

} // namespace Tessel
