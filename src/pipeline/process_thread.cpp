#include "pipeline/process_thread.h"

#include "devices/families.h"
#include "devices/primitives.h"
#include "devices/thread_name.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "pipeline/raw_block.h"
#include "pipeline/records.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

namespace {

constexpr uint32_t loggedInvalidWords = 10; // of a run

class WordStream
{
public:
    explicit WordStream(RunRef &streamRun)
        : ref(streamRun), run(*ref.run), device(ref.device()), context(ref.context())
    {
        rules = {.Mode = device.MeasMode,
                 .NumChans = static_cast<uint32_t>(std::max(device.NumChans, 0)),
                 .SyncPeriodPs = static_cast<uint64_t>(device.SyncPeriodPs),
                 .IgnoresCode18 = familyOf(device.LibType).IgnoresCode18};
    }

    // One pass: take a batch if none is pending, hand it on. False: everything that was read is decoded, or the
    // run is aborted.
    bool pass()
    {
        bool more = hold ? waitForRoom() : takeBatch();
        if (!more) return false;
        if (pending > 0 && !hold) {
            deliverRaw();
            deliverEvents();
        }
        return true;
    }

private:
    bool takeBatch()
    {
        if (!acquireReadGate(context)) return false;
        bool inputDone = context.InputDone;
        if (run.ReadCount > 0 && pending == 0) {
            std::swap(run.ReadBuffer, run.ProcessBuffer);
            pending = std::exchange(run.ReadCount, 0);
            rawDone = 0;
            context.Description.NumRecs += pending;
        }
        context.ReadGate.release();
        if (context.AbortRequested || (inputDone && pending == 0)) return false;
        if (pending == 0) std::this_thread::sleep_for(100us);
        return true;
    }

    // A hold ends when everybody has room for the batch. It is entered at half a store and left with a whole
    // one.
    bool waitForRoom()
    {
        if (context.AbortRequested) return false;
        bool storeHasRoom = true;
        if (auto target = lockFirst(context); target.record) {
            const EventStore &store = target.record->Events;
            storeHasRoom = store.Capacity == 0 || pending + 1 + store.Count < store.Capacity;
        }
        hold = !storeHasRoom || !rawBlockHasRoom(context, run, pending - rawDone);
        if (hold) std::this_thread::sleep_for(1ms);
        return true;
    }

    void deliverRaw()
    {
        if (run.Request.Kind != MeasKind::Raw) return;
        uint64_t done = appendToRawBlock(ref, {run.ProcessBuffer.get() + rawDone, pending - rawDone});
        rawDone += done;
        if (done > 0) ++run.Taken;
        hold = rawDone < pending;
    }

    void deliverEvents()
    {
        if (hold) return;
        auto target = lockFirst(context);
        if (target.record && !makeRoom(*target.record)) return;
        bool isConsumed = run.Request.Kind != MeasKind::Raw;
        if (isConsumed && target.record && target.record->Events.hasArrays()) decodeTo(target.record->Events);
        pending = 0;
        target = {};
        std::this_thread::yield();
    }

    // False: the stream has to wait.
    bool makeRoom(Manipulator &target)
    {
        EventStore &store = target.Events;
        if (store.Capacity == 0 || pending + 1 + store.Count < streamRecords() / 2) return true;
        if (isFile(device)) {
            hold = true;
            return false;
        }
        logWrn(LogCategory::Device, "Device: {} Input Buffer overrun - clearing! @{}", target.Name, device.ID);
        store.Count = 0;
        return true;
    }

    void decodeTo(EventStore &store)
    {
        InvalidWords invalid{.Room = loggedInvalidWords - run.InvalidRecordCount};
        uint64_t words = std::min(pending, store.Capacity - store.Count);
        store.Count += decode({run.ProcessBuffer.get(), words}, rules, run.OverflowBase,
                              store.Times.get() + store.Count, store.Channels.get() + store.Count, invalid);
        run.InvalidRecordCount += invalid.Count;
        for (uint32_t i = 0; i < invalid.Count; ++i)
            logWrn(LogCategory::Device, "{}", invalidWordText(device.MeasMode, invalid.Words[i], device.ID));
    }

    RunRef &ref;
    Run &run;
    Device &device;
    MeasContext &context;
    DecodeRules rules;
    uint64_t pending = 0; // words of the present batch
    uint64_t rawDone = 0; // of these, what the caller's raw block has got
    bool hold = false;    // a consumer has no room: the batch waits and nothing new is taken
};

} // namespace

void ProcessThread(RunRef run)
{
    if (LogLevel.Api) logInf(LogCategory::Progress, "ProcessThread started @{}", run.device().ID);
    nameThread(run.device());
    WordStream stream(run);
    while (stream.pass()) {
    }
    if (LogLevel.Api) logInf(LogCategory::Progress, "ProcessThread finished @{}", run.device().ID);
}

} // namespace Tessel
