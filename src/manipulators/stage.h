// The life of a stage's thread, the same for every kind: wait for a run, take what has arrived, hand it on
// piece by piece, until the run is over or the stage is deleted.
//
// A kind gives its words, its state and five functions on plain arrays, without thread or lock:
//   startPass(state, stage)               at the start of a run
//   work(state, stage, piece, out)        under the lock of the next record; appends to `out`, never past its
//                                         capacity, and returns how many events of the piece are done: fewer
//                                         than all only where `out` is full
//   afterPiece(state, stage, piece)       with no lock held
//   clear(state)                          the results were cleared
//   finishPass(state, stage, out)         the last events of a run, under the lock of the next record; `out` is
//                                         null if there is no next store. False: `out` is full, once more
//
// A piece that is cut for want of room goes on with `Resumed` set, up to the end that it had: what a kind makes
// of a piece doesn't depend on the cut.
#pragma once

#include "devices/primitives.h"
#include "devices/thread_name.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/fill_rule.h"
#include "manipulators/piece.h"
#include "settings/system_ini.h"

#include <chrono>
#include <new>
#include <thread>

namespace Tessel {

// Log texts of a kind; {} are the record's name and the device's id, and for an import its source.
struct StageWords
{
    const char *Created; // null: no such line
    const char *Started, *Stopped, *Exited;
    const char *Overrun;
    bool StoppedAtExit = true; // false: a thread that ends between two runs leaves StoppedFlag as it was
};

inline void logStage(const char *text, const StageRef &stage)
{
    if (text && LogLevel.Manipulators)
        logInf(LogCategory::Progress, fmt::runtime(text), stage.record->Name, stage.device->ID,
               stage.record->SourceId);
}

// What only some kinds have to say; the others have these words.
template <class State>
bool isReady(State &, const StageRef &) // no lock is held; false: the stage can't enter a run yet
{
    return true;
}
template <class State>
void beforeTurn(State &, const StageRef &) // no lock is held
{
}
template <class State>
bool waits(const State &) // the piece was cut because the stage waits, and not for want of room
{
    return false;
}
template <class State>
void logOverrun(const State &, const StageWords &words, const StageRef &stage, const Manipulator &)
{
    logWrn(LogCategory::Device, fmt::runtime(words.Overrun), stage.record->Name, stage.device->ID);
}

// False: the thread is to end. A stage enters a run under its own lock, so that whoever asks it to stop knows
// whether it has entered, and once: what it left it has left, whatever becomes of the requests to the run.
template <class State>
bool waitForRun(State &state, const StageRef &stage)
{
    using namespace std::chrono_literals;
    Manipulator &record = *stage.record;
    for (;;) {
        const bool ready = isReady(state, stage);
        {
            auto own = lockOwn(*stage.context, stage.record);
            if (record.ExitFlag) return false;
            if (ready && stage.context->Measuring && !record.StopFlag && !record.StoppedFlag &&
                !stage.context->AbortRequested) {
                record.StartedFlag = true;
                return true;
            }
        }
        std::this_thread::sleep_for(10ms);
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
        auto own = lockOwn(*stage.context, stage.record);
        if (!batch.allocate(record.Events.Capacity)) throw std::bad_alloc();
        while (!isOver()) {
            take();
            own.unlock();
            beforeTurn(state, stage);
            handOn();
            own = lockOwn(*stage.context, stage.record);
            if (record.ClearFlag) clear(state);
            record.ClearFlag = false;
        }
        own.unlock();
        finish();
    }

private:
    // The record's lock is held.
    bool isOver() const
    {
        if (record.ExitFlag || stage.context->AbortRequested) return true;
        return record.StopFlag && batch.Count == 0 && record.Events.Count == 0 && !resume;
    }

    // The record's lock is held.
    void take()
    {
        if (resume) return;
        batch.Count = 0;
        if (record.Enabled && stage.context->Measuring && record.Events.hasArrays())
            takeAll(record.Events, batch);
        else
            record.Events.Count = 0;
    }

    void handOn()
    {
        using namespace std::chrono_literals;
        if (batch.Count == 0) {
            std::this_thread::sleep_for(1ms);
            return;
        }
        auto next = lockNext(*stage.context, record);
        if (next.record && next.record->Events.hasArrays())
            handTo(*next.record, next.lock);
        else
            dropBatch(); // nobody takes it
    }

    void handTo(Manipulator &next, std::unique_lock<std::mutex> &nextLock)
    {
        using namespace std::chrono_literals;
        bool mayHold = isFile(*stage.device);
        Piece piece{batch.Times.get() + window.Cursor, batch.Channels.get() + window.Cursor, 0, window.Cut};
        Fill fill = fillRule(next.Events.Count, std::min(next.HighWater, next.Events.Capacity), mayHold,
                             batch.Count, window, next.HoldFlag);
        if (fill == Fill::Work) {
            uint64_t wanted = window.End - window.Cursor;
            piece.Count = wanted;
            piece.Count = work(state, stage, piece, next.Events);
            window.Cut = piece.Count < wanted;
            if (window.Cut && !mayHold && !waits(state)) fill = Fill::Overrun;
        }
        if (fill == Fill::Overrun) {
            logOverrun(state, words, stage, next);
            next.Events.Count = 0;
        }
        nextLock.unlock();

        if (piece.Count > 0) afterPiece(state, stage, piece);
        window.Cursor += piece.Count;
        resume = fill != Fill::Overrun && window.Cursor < batch.Count;
        if (!resume) dropBatch();
        if (resume)
            std::this_thread::sleep_for(1ms);
        else
            std::this_thread::yield();
    }

    void dropBatch()
    {
        window = {};
        batch.Count = 0;
        resume = false;
    }

    // The stages behind this one still take what they are given.
    void finish()
    {
        using namespace std::chrono_literals;
        for (;;) {
            {
                auto next = lockNext(*stage.context, record);
                bool isTaken = next.record && next.record->Events.hasArrays();
                if (finishPass(state, stage, isTaken ? &next.record->Events : nullptr)) return;
            }
            if (record.ExitFlag || stage.context->AbortRequested) return;
            std::this_thread::sleep_for(1ms);
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

template <class State>
void runStage(const StageRef &stage, const StageWords &words, State state)
{
    nameThread(*stage.device);
    logStage(words.Created, stage);
    while (waitForRun(state, stage)) {
        logStage(words.Started, stage);
        try {
            startPass(state, stage);
            StagePass<State>(stage, words, state).run();
        } catch (const std::exception &failure) { // the next run finds the stage waiting
            failPass(stage, failure.what());
        }
        stage.record->StoppedFlag = true;
        logStage(words.Stopped, stage);
    }
    if (words.StoppedAtExit) stage.record->StoppedFlag = true;
    logStage(words.Exited, stage);
}

} // namespace Tessel
