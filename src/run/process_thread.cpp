#include "run/process_thread.h"

#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/fill_rule.h"
#include "measurements/raw.h"
#include "run/file_writer.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "stream/order.h"
#include "stream/words.h"
#include "threads/losses.h"
#include "threads/run_control.h"
#include "threads/thread_name.h"

#include <algorithm>
#include <utility>

namespace Tessel {

void tellInvalid(Run &run, const InvalidWords &invalid)
{
    const uint32_t told = std::min(invalid.Count, loggedInvalidWords - run.InvalidRecordCount);
    run.InvalidRecordCount += told;
    for (uint32_t i = 0; i < told; ++i)
        logWrn(LogCategory::Device, "{}", invalidWordText(run.Facts.Mode, invalid.Words[i], run.Facts.ID));
}

namespace {

constexpr uint64_t decodedWords = 32768; // of a recorded file, decoded at once

class WordStream
{
public:
    explicit WordStream(RunRef &streamRun)
        : ref(streamRun), run(*ref.run), facts(run.Facts), context(ref.context)
    {
    }

    // Takes a batch if none is pending, and hands it on. False: everything that was read is decoded, or the run
    // is aborted.
    bool pass()
    {
        if (pending == 0 && !takeBatch()) return false;
        if (isAborted(run)) return false;
        if (!deliverRaw())
            waitForRawBlock(run, pending - rawDone);
        else if (auto target = lockFirst(context); makeRoom(target))
            deliverEvents(target);
        return true;
    }

private:
    bool takeBatch()
    {
        std::unique_lock gate(run.ReadGate);
        run.ReadChanged.wait(gate, [this] {
            return run.ReadCount > 0 || hasReached(run, RunPhase::InputDone) || isAborted(run);
        });
        if (run.ReadCount == 0) return false;
        std::swap(run.ReadBuffer, run.ProcessBuffer);
        pending = std::exchange(run.ReadCount, 0);
        run.OverflowBase += std::exchange(run.DroppedOverflows, 0);
        rawDone = decoded = 0;
        context.Description.NumRecs += pending;
        gate.unlock();
        run.ReadChanged.notify_all();
        keepWords(ref, {run.ProcessBuffer.get(), pending});
        return true;
    }

    // False: the block has no room for the rest.
    bool deliverRaw()
    {
        if (run.Request.Kind != MeasKind::Raw) return true;
        const uint64_t done = appendToRawBlock(ref, {run.ProcessBuffer.get() + rawDone, pending - rawDone});
        rawDone += done;
        if (done > 0) noteTaken(run);
        return rawDone == pending;
    }

    // False: the stream was held, and the store may be another one now.
    bool makeRoom(LockedRecord &target)
    {
        if (!target.record) return true;
        EventStore &store = target.record->Events;
        if (facts.MayWait) {
            auto hasRoom = [&] { return !hasArrays(store) || takesPiece(store); };
            if (hasRoom()) return true;
            target.record->Changed.wait(target.lock, [&] { return hasRoom() || isAborted(run); });
            return false;
        }
        if (store.Capacity == 0 || pending + 1 + store.Count < streamRecords() / 2) return true;
        logWrn(LogCategory::Device, "Device: {} Input Buffer overrun - clearing! @{}", target.record->Name,
               facts.ID);
        noteLoss(run, LossPlace::Store, store.Count);
        store.Count = 0;
        return true;
    }

    // A recorded file goes block by block: what is decoded is still in the cache when it is taken.
    void deliverEvents(LockedRecord &target)
    {
        const bool isConsumed = run.Request.Kind != MeasKind::Raw;
        if (!isConsumed || !target.record || !hasArrays(target.record->Events)) {
            pending = 0;
            noteBatchDone(run);
            return;
        }
        EventStore &store = target.record->Events;
        decodeTo(store);
        store.EndsBatch = facts.MayWait && pending == 0;
        target.lock.unlock();
        target.record->Changed.notify_all();
    }

    void decodeTo(EventStore &store)
    {
        const DecodeRules rules = rulesOf(facts);
        InvalidWords invalid{.Room = loggedInvalidWords - run.InvalidRecordCount};
        const uint64_t most = facts.MayWait ? decodedWords : pending;
        const uint64_t words = std::min({pending, most, store.Capacity - store.Count});
        const std::span batch(run.ProcessBuffer.get() + decoded, words);
        decoded += words;
        pending = facts.MayWait ? pending - words : 0;
        const uint64_t events = decodeInOrder(batch, rules, run.OverflowBase, store.Times.get() + store.Count,
                                              store.Channels.get() + store.Count, invalid, run.Order);
        tellOrder(run, run.Order.StepsBack, run.Order.LargestStep);
        store.Count += events;
        if (const uint64_t lost = invalidAmong(batch, events, rules); lost > 0)
            noteLoss(run, LossPlace::InvalidWords, lost);
        tellInvalid(run, invalid);
    }

    RunRef &ref;
    Run &run;
    const StreamFacts &facts;
    MeasContext &context;
    uint64_t pending = 0; // words of the present batch that aren't decoded yet
    uint64_t decoded = 0; // words of it that are
    uint64_t rawDone = 0; // of these, words that are in the caller's raw block
};

} // namespace

void ProcessThread(RunRef run)
{
    if (LogLevel.Api) logInf(LogCategory::Progress, "ProcessThread started @{}", run.device.ID);
    nameThread(run.device.ID);
    WordStream stream(run);
    while (stream.pass()) {
    }
    if (LogLevel.Api) logInf(LogCategory::Progress, "ProcessThread finished @{}", run.device.ID);
}

} // namespace Tessel
