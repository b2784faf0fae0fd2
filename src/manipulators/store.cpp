#include "manipulators/store.h"

#include "log/log.h"
#include "manipulators/chain.h"
#include "manipulators/numbering.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"

#include <new>

namespace Tessel {

namespace {

// Of a recorded file what goes from thread to thread stays in the cache.
constexpr uint64_t waitingEvents = 65536;

uint64_t storeEvents(const Run &run)
{
    return run.Facts.MayWait ? waitingEvents : streamRecords();
}

// A host gets the events of a recorded file batch by batch, so the Store has room for one.
uint64_t finalEvents(const Run &run)
{
    return run.Request.Kind == MeasKind::Unfold ? streamRecords() : storeEvents(run);
}

} // namespace

bool allocateManipulators(const DeviceRef &target, const Run &run)
{
    const std::string &id = target->device.ID;
    const bool trace = LogLevel.Manipulators;
    if (trace) logInf(LogCategory::Progress, "allocate manipulators memory @{}", id);
    auto chain = chainOf(target->context);
    for (size_t i = 0; i < chain.size(); ++i) {
        std::lock_guard lock(chain[i]->Lock);
        chain[i]->StopFlag = chain[i]->StartedFlag = chain[i]->StoppedFlag = false;
        if (!allocate(chain[i]->Events, storeEvents(run))) return false;
        if (trace)
            logInf(LogCategory::Progress, "{} ({} of {} manipulators) allocated @{}", chain[i]->Name, i + 1,
                   chain.size(), id);
    }
    if (trace) logInf(LogCategory::Progress, "allocate manipulators memory complete @{}", id);
    return true;
}

std::shared_ptr<Manipulator> addManisStore(const DeviceRef &target, const Run &run)
{
    MeasContext &context = target->context;
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "AddManisStore @{}", target->device.ID);
    auto record = std::make_shared<Manipulator>();
    record->Name = "Store";
    record->Type = ManisType::Store;
    record->HighWater = streamRecords();
    record->Events.Capacity =
        run.Request.Kind == MeasKind::Unfold ? run.Request.UnfoldCapacity : streamRecords();
    record->StartedFlag = run.Request.Kind == MeasKind::Raw; // nobody reads it
    {
        ChainLocks locks(context);
        for (const auto &stage : context.Manis) // also one that was added since the others got theirs
            if (!hasArrays(stage->Events) && !allocate(stage->Events, storeEvents(run))) throw std::bad_alloc();
        record->Index = record->ChainIndex = static_cast<int32_t>(context.Manis.size());
        record->NextIndex = record->Index + 1;
        locks.append(record);
    }
    return record;
}

bool allocateFinalStore(const DeviceRef &target, const Run &run)
{
    auto last = lockLast(target->context);
    return last.record && allocate(last.record->Events, finalEvents(run));
}

void tellStoreGoes(const DeviceRef &target)
{
    if (!LogLevel.Manipulators) return;
    if (auto record = lockLast(target->context).record)
        logInf(LogCategory::Progress, "RemManisStore {} @{}", record->Index.load(), target->device.ID);
}

void removeManisStore(const DeviceRef &target)
{
    MeasContext &context = target->context;
    auto record = lockLast(context).record;
    if (!record) return;
    ChainLocks locks(context);
    release(record->Events);
    locks.remove(record);
    linkRecords(context.Manis); // a stage may have come after it
}

} // namespace Tessel
