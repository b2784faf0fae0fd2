// The life of a stage's thread, the same for every kind: wait for a run, take what has arrived, hand it on
// piece by piece, until the run is over or the stage is deleted.
//
// A kind gives its log words, its state and one function on plain arrays, without thread or lock:
//   work(state, stage, piece, out)        under the lock of the next stage; appends to `out`, never past its
//                                         capacity, and returns how many events of the piece are done: fewer
//                                         than all only if `out` is full
// In `hooksOf` it names which of these functions it has as well:
//   StartPass    startPass(state, stage)           at the start of a run
//   EndBatch     endBatch(state, stage)            the batch's last event is done; with no lock held
//   Clear        clear(state)                      the results were cleared
//   FinishPass   finishPass(state, stage, out)     the last events of a run, under the lock of the next stage;
//                                                  `out` is null if there is no next store. False: `out` is
//                                                  full, call again
//   Ready        isReady(state, stage)             with no lock held; false: can't enter the run yet
//   BeforeTurn   beforeTurn(state, stage)          with no lock held
//   Waits        waits(state, stage)               the piece was cut for what the source hasn't brought, not
//                                                  for want of room; SourceChanged ends the wait
//   Overrun      logOverrun(state, stage, next)    logs it in place of the kind's overrun line
// The loop calls exactly the hooks that are named. A name without its function doesn't compile, nor does a
// function without its name.
//
// What a kind makes of a batch doesn't depend on the pieces in which it gets it: every piece but a batch's
// first comes with `Resumed` set. Of a recorded file the end of a batch travels with the events, from store to
// store (`EndsBatch`). Of live data a batch is a piece, with what was cut off it for want of room or for a look
// at the run.
#pragma once

#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/fill_rule.h"
#include "manipulators/hooks.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "stream/piece.h"
#include "threads/losses.h"
#include "threads/paces.h"
#include "threads/run_control.h"
#include "threads/thread_name.h"

#include <new>

namespace Tessel {

// Log texts of a kind; {} are the stage's name and the device's id, and for an import its source.
struct StageWords
{
    const char *Created; // null: no such line
    const char *Started, *Stopped, *Exited;
    const char *Overrun;
    bool StoppedAtExit = true; // false: a thread that ends between two runs leaves StoppedFlag as it was
};

// The named hooks are the functions that there are.
template <class State>
constexpr bool namesItsHooks(State *state = nullptr, const StageRef *stage = nullptr, EventStore *out = nullptr)
{
    auto is = [](bool named, bool present) { return named == present; };
    return is(
               uses<State, Hook::StartPass>, requires { startPass(*state, *stage); }) &&
           is(
               uses<State, Hook::EndBatch>, requires { endBatch(*state, *stage); }) &&
           is(
               uses<State, Hook::Clear>, requires { clear(*state); }) &&
           is(
               uses<State, Hook::FinishPass>, requires { finishPass(*state, *stage, out); }) &&
           is(
               uses<State, Hook::Ready>, requires { isReady(*state, *stage); }) &&
           is(
               uses<State, Hook::BeforeTurn>, requires { beforeTurn(*state, *stage); }) &&
           is(
               uses<State, Hook::Waits>, requires { waits(*state, *stage); }) &&
           is(
               uses<State, Hook::Overrun>, requires { logOverrun(*state, *stage, *stage->record); });
}

inline void logStage(const char *text, const StageRef &stage)
{
    if (text && LogLevel.Manipulators)
        logInf(LogCategory::Progress, fmt::runtime(text), stage.record->Name, stage.device.ID,
               stage.record->SourceId);
}

// The run that the stage may enter; null: none. Its own lock is held.
inline std::shared_ptr<Run> openRun(const StageRef &stage)
{
    const Manipulator &record = *stage.record;
    auto run = currentRun(stage.context);
    const bool isOpen = run && isMeasuring(*run) && !isAborted(*run) && !record.StopFlag && !record.StoppedFlag;
    return isOpen ? run : nullptr;
}

// A stage that has no memory to look doesn't enter: it ends this run, and waits for the next.
template <class State>
bool looksReady(State &state, const StageRef &stage) noexcept
{
    try {
        return isReady(state, stage);
    } catch (const std::exception &failure) {
        failPass(stage, failure.what());
        return false;
    }
}

// False: the thread is to end. A stage enters a run at most once, and under its own lock, so that whoever asks
// it to stop knows whether it has entered.
template <class State>
bool waitForRun(State &state, StageRef &stage)
{
    Manipulator &record = *stage.record;
    std::shared_ptr<Run> readyFor;
    for (;;) {
        auto own = lockOwn(stage.context, stage.record);
        record.Changed.wait(own, [&] { return record.ExitFlag || (stage.run = openRun(stage)); });
        if (record.ExitFlag) return false;
        if (!uses<State, Hook::Ready> || readyFor == stage.run) {
            record.StartedFlag = true;
            own.unlock();
            wake(stage.run->Control);
            return true;
        }
        own.unlock();
        if constexpr (uses<State, Hook::Ready>) readyFor = looksReady(state, stage) ? stage.run : nullptr;
        if (readyFor) continue;
        own.lock();
        record.Changed.wait_for(own, Pace::importSearch, [&record] { return record.ExitFlag.load(); });
    }
}

// One pass of a stage through a run.
template <class State>
class StagePass
{
public:
    StagePass(const StageRef &passing, const StageWords &stageWords, State &stageState)
        : stage(passing), record(*passing.record), words(stageWords), state(stageState)
    {
    }

    void run()
    {
        auto own = lockOwn(stage.context, stage.record);
        if (!allocate(batch, record.Events.Capacity)) throw std::bad_alloc();
        for (;;) {
            record.Changed.wait(own, [this] { return isOver() || record.ClearFlag || hasWork(); });
            if (isOver()) break;
            if constexpr (uses<State, Hook::Clear>)
                if (record.ClearFlag) clear(state);
            record.ClearFlag = false;
            take();
            own.unlock();
            record.Changed.notify_all(); // who writes to it may have waited for room
            if constexpr (uses<State, Hook::BeforeTurn>) beforeTurn(state, stage);
            if (hasContent(batch)) handOn();
            own = lockOwn(stage.context, stage.record);
        }
        own.unlock();
        if constexpr (uses<State, Hook::FinishPass>) finish();
    }

private:
    // The stage's lock is held.
    bool isOver() const
    {
        if (record.ExitFlag || isAborted(*stage.run)) return true;
        return record.StopFlag && !hasContent(record.Events) && !resume;
    }

    // The stage's lock is held. A piece that waits for the source needs no turn until the source has moved.
    bool hasWork() const
    {
        if constexpr (uses<State, Hook::BeforeTurn>)
            if (record.SourceChanged) return true;
        if constexpr (uses<State, Hook::Waits>)
            if (resume) return !waits(state, stage);
        return resume || hasContent(record.Events);
    }

    // The stage's lock is held.
    void take()
    {
        if (resume) return;
        drop(batch);
        if (record.Enabled && isMeasuring(*stage.run) && hasArrays(record.Events))
            takeAll(record.Events, batch);
        else
            drop(record.Events);
    }

    void handOn()
    {
        auto next = lockNext(stage.context, record);
        if (!next.record || !hasArrays(next.record->Events))
            dropUntaken();
        else if (stage.run->Facts.MayWait)
            handToInTime(*next.record, next.lock);
        else
            handTo(*next.record, next.lock);
    }

    // Of a recorded file: what finds no room waits for it.
    void handToInTime(Manipulator &next, std::unique_lock<std::mutex> &nextLock)
    {
        resume = true;
        if (!waitForPiece(next, nextLock)) return;
        Piece piece = pieceAt(window.Cursor, batch.Count, isInBatch);
        isInBatch = isInBatch || piece.Count > 0;
        window.Cursor += workInTurns(piece, piece.Count, next.Events);
        const bool isDone = window.Cursor == batch.Count;
        next.Events.EndsBatch = isDone && batch.EndsBatch;
        nextLock.unlock();
        next.Changed.notify_all();
        if (!isDone) return;
        if (batch.EndsBatch) tellEnd();
        dropTaken();
    }

    void handTo(Manipulator &next, std::unique_lock<std::mutex> &nextLock)
    {
        Piece piece = pieceAt(window.Cursor, window.Cursor, window.Cut);
        Fill fill = fillRule(next.Events.Count, markOf(next), batch.Count, window);
        if (fill == Fill::Work) {
            const uint64_t wanted = window.End - window.Cursor;
            piece.Count = wanted;
            piece.Count = workInTurns(piece, wanted, next.Events);
            window.Cut = piece.Count < wanted;
            if (window.Cut && !isWaiting() && !isAborted(*stage.run)) fill = Fill::Overrun;
        }
        if (fill == Fill::Overrun) {
            tellOverrun(next);
            // What this stage hasn't handed on of its batch goes too.
            noteLoss(*stage.run, lossPlace, next.Events.Count + batch.Count - window.Cursor - piece.Count);
            next.Events.Count = 0;
        }
        nextLock.unlock();
        next.Changed.notify_all();

        if (piece.Count > 0) tellEnd();
        window.Cursor += piece.Count;
        resume = fill != Fill::Overrun && window.Cursor < batch.Count;
        if (!resume) return dropTaken();
        if (isWaiting()) return;
        nextLock.lock();
        waitForLiveRoom(next, nextLock);
    }

    Piece pieceAt(uint64_t from, uint64_t to, bool isResumed) const
    {
        return {batch.Times.get() + from, batch.Channels.get() + from, to - from, isResumed};
    }

    void tellEnd()
    {
        if constexpr (uses<State, Hook::EndBatch>) endBatch(state, stage);
    }

    // An end waits for one turn at most.
    uint64_t workInTurns(Piece piece, uint64_t wanted, EventStore &out)
    {
        constexpr uint64_t turn = 65536; // events
        uint64_t done = 0;
        while (done < wanted) {
            piece.Count = std::min(wanted - done, turn);
            const uint64_t now = work(state, stage, piece, out);
            done += now;
            if (now < piece.Count || isAborted(*stage.run)) break;
            piece = {piece.Times + now, piece.Channels + now, 0, true};
        }
        return done;
    }

    bool isWaiting() const
    {
        if constexpr (uses<State, Hook::Waits>) return waits(state, stage);
        return false;
    }

    static uint64_t markOf(const Manipulator &next) { return std::min(next.HighWater, next.Events.Capacity); }

    bool isToLeave(const Manipulator &next) const
    {
        return !hasArrays(next.Events) || record.ExitFlag || isAborted(*stage.run);
    }

    // False: it takes none any more, or this stage is to leave.
    bool waitForPiece(Manipulator &next, std::unique_lock<std::mutex> &nextLock) const
    {
        next.Changed.wait(nextLock, [&] { return takesPiece(next.Events) || isToLeave(next); });
        return !isToLeave(next);
    }

    // It has room when it holds less than its mark, or less than now where a piece was cut. A store that is
    // still full in the end is cleared.
    void waitForLiveRoom(Manipulator &next, std::unique_lock<std::mutex> &nextLock) const
    {
        const uint64_t mark = markOf(next);
        const uint64_t enough = std::max<uint64_t>(window.Cut ? std::min(mark, next.Events.Count) : mark, 1);
        next.Changed.wait_for(nextLock, Pace::liveRoom,
                              [&] { return next.Events.Count < enough || isToLeave(next); });
    }

    static constexpr LossPlace lossPlace = uses<State, Hook::Overrun> ? LossPlace::Import : LossPlace::Stage;

    void tellOverrun(const Manipulator &next)
    {
        if constexpr (uses<State, Hook::Overrun>)
            logOverrun(state, stage, next);
        else
            logWrn(LogCategory::Device, fmt::runtime(words.Overrun), record.Name, stage.device.ID);
    }

    // Nobody takes it.
    void dropUntaken()
    {
        if (batch.EndsBatch) noteBatchDone(*stage.run);
        dropTaken();
    }

    // All that was taken is done. With the end of a batch the next piece begins one.
    void dropTaken()
    {
        if (batch.EndsBatch) isInBatch = false;
        window = {};
        drop(batch);
        resume = false;
    }

    // The stages after this one still take what they get. Of a recorded file it is a batch of its own.
    void finish()
    {
        const bool mayWait = stage.run->Facts.MayWait;
        for (bool done = false; !done;) {
            auto next = lockNext(stage.context, record);
            bool isTaken = next.record && hasArrays(next.record->Events);
            if (isTaken && mayWait) isTaken = waitForPiece(*next.record, next.lock);
            EventStore *out = isTaken ? &next.record->Events : nullptr;
            const uint64_t before = out ? out->Count : 0;
            done = finishPass(state, stage, out) || record.ExitFlag || isAborted(*stage.run);
            if (!out) continue;
            out->EndsBatch = mayWait && done && out->Count > before;
            next.record->Changed.notify_all();
            if (done || mayWait) continue;
            window.Cut = true;
            waitForLiveRoom(*next.record, next.lock);
        }
    }

    const StageRef &stage;
    Manipulator &record;
    const StageWords &words;
    State &state;
    EventStore batch;
    BatchWindow window;
    bool resume = false;    // something of what was taken waits for room
    bool isInBatch = false; // of a recorded file: the next piece goes on with a batch
};

// The stage has left its run. Also called as a thread ends, whether it was in a run or not.
inline void tellStopped(StageRef &stage)
{
    stage.record->StoppedFlag = true;
    wake(*stage.record);
    if (stage.run) wake(stage.run->Control);
    stage.run = nullptr;
}

template <class State>
void runStage(StageRef stage, const StageWords &words, State state)
{
    static_assert(namesItsHooks<State>(), "a hook without its function, or a function without its hook");
    nameThread(stage.device.ID);
    logStage(words.Created, stage);
    while (waitForRun(state, stage)) {
        logStage(words.Started, stage);
        try {
            if constexpr (uses<State, Hook::StartPass>) startPass(state, stage);
            StagePass<State>(stage, words, state).run();
        } catch (const std::exception &failure) { // the next run finds the stage waiting
            failPass(stage, failure.what());
        }
        tellStopped(stage);
        logStage(words.Stopped, stage);
    }
    if (words.StoppedAtExit) tellStopped(stage);
    logStage(words.Exited, stage);
}

} // namespace Tessel
