// The life of a stage's thread, the same for every kind: wait for a run, take what has arrived, hand it on
// piece by piece, until the run is over or the stage is deleted.
//
// A kind gives its log words, its state and one function on plain arrays, without thread or lock:
//   work(state, stage, piece, out)        under the lock of the next stage; appends to `out`, never past its
//                                         capacity, and returns how many events of the piece are done: fewer
//                                         than all only if `out` is full
// In `hooksOf` it names which of these functions it has as well:
//   StartPass    startPass(state, stage)           at the start of a run
//   AfterPiece   afterPiece(state, stage, piece)   with no lock held
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
// A piece that is cut, for want of room or for a look at the run, goes on with `Resumed` set, up to the same
// end. So what a kind makes of a piece doesn't depend on the cut.
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
               uses<State, Hook::AfterPiece>, requires { afterPiece(*state, *stage, Piece{}); }) &&
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
            if (batch.Count > 0) handOn();
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
        return record.StopFlag && batch.Count == 0 && record.Events.Count == 0 && !resume;
    }

    // The stage's lock is held. A piece that waits for the source needs no turn until the source has moved.
    bool hasWork() const
    {
        if constexpr (uses<State, Hook::BeforeTurn>)
            if (record.SourceChanged) return true;
        if constexpr (uses<State, Hook::Waits>)
            if (resume) return !waits(state, stage);
        return resume || record.Events.Count > 0;
    }

    // The stage's lock is held.
    void take()
    {
        if (resume) return;
        batch.Count = 0;
        if (record.Enabled && isMeasuring(*stage.run) && hasArrays(record.Events))
            takeAll(record.Events, batch);
        else
            record.Events.Count = 0;
    }

    void handOn()
    {
        auto next = lockNext(stage.context, record);
        if (next.record && hasArrays(next.record->Events))
            handTo(*next.record, next.lock);
        else
            dropBatch(); // nobody takes it
    }

    void handTo(Manipulator &next, std::unique_lock<std::mutex> &nextLock)
    {
        const bool mayHold = stage.run->Facts.MayWait;
        Piece piece{batch.Times.get() + window.Cursor, batch.Channels.get() + window.Cursor, 0, window.Cut};
        Fill fill = fillRule(next.Events.Count, std::min(next.HighWater, next.Events.Capacity), mayHold,
                             batch.Count, window, next.HoldFlag);
        if (fill == Fill::Work) {
            uint64_t wanted = window.End - window.Cursor;
            piece.Count = wanted;
            piece.Count = workInTurns(piece, wanted, next.Events);
            window.Cut = piece.Count < wanted;
            if (window.Cut && !mayHold && !isWaiting() && !isAborted(*stage.run)) fill = Fill::Overrun;
        }
        if (fill == Fill::Overrun) {
            tellOverrun(next);
            // What this stage hasn't handed on of its batch goes too.
            noteLoss(*stage.run, lossPlace, next.Events.Count + batch.Count - window.Cursor - piece.Count);
            next.Events.Count = 0;
        }
        const uint64_t enough = enoughRoom(next);
        nextLock.unlock();
        next.Changed.notify_all();

        if constexpr (uses<State, Hook::AfterPiece>)
            if (piece.Count > 0) afterPiece(state, stage, piece);
        window.Cursor += piece.Count;
        resume = fill != Fill::Overrun && window.Cursor < batch.Count;
        if (!resume) return dropBatch();
        if (isWaiting()) return;
        nextLock.lock();
        waitForRoom(next, nextLock, enough);
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

    // The next store has room again when it holds less than its mark, or less than now where a piece was cut.
    uint64_t enoughRoom(const Manipulator &next) const
    {
        const uint64_t mark = std::min(next.HighWater, next.Events.Capacity);
        return std::max<uint64_t>(window.Cut ? std::min(mark, next.Events.Count) : mark, 1);
    }

    void waitForRoom(Manipulator &next, std::unique_lock<std::mutex> &nextLock, uint64_t enough)
    {
        auto goesOn = [&] {
            return next.Events.Count < enough || !hasArrays(next.Events) || record.ExitFlag ||
                   isAborted(*stage.run);
        };
        if (stage.run->Facts.MayWait)
            next.Changed.wait(nextLock, goesOn);
        else // a store that is still full then is cleared
            next.Changed.wait_for(nextLock, Pace::liveRoom, goesOn);
    }

    static constexpr LossPlace lossPlace = uses<State, Hook::Overrun> ? LossPlace::Import : LossPlace::Stage;

    void tellOverrun(const Manipulator &next)
    {
        if constexpr (uses<State, Hook::Overrun>)
            logOverrun(state, stage, next);
        else
            logWrn(LogCategory::Device, fmt::runtime(words.Overrun), record.Name, stage.device.ID);
    }

    void dropBatch()
    {
        window = {};
        batch.Count = 0;
        resume = false;
    }

    // The stages after this one still take what they get.
    void finish()
    {
        for (;;) {
            auto next = lockNext(stage.context, record);
            const bool isTaken = next.record && hasArrays(next.record->Events);
            const bool done = finishPass(state, stage, isTaken ? &next.record->Events : nullptr);
            if (next.record) next.record->Changed.notify_all();
            if (done || record.ExitFlag || isAborted(*stage.run)) return;
            window.Cut = true;
            waitForRoom(*next.record, next.lock, enoughRoom(*next.record));
        }
    }

    const StageRef &stage;
    Manipulator &record;
    const StageWords &words;
    State &state;
    EventStore batch;
    BatchWindow window;
    bool resume = false; // a piece of the batch waits for room
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
