#include "manipulators/store.h"

#include "log/log.h"
#include "manipulators/chain.h"
#include "settings/system_ini.h"

#include <chrono>

namespace Tessel {

using namespace std::chrono_literals;

bool allocateManipulators(const DeviceRef &target)
{
    const std::string &id = target.device->ID;
    const bool trace = LogLevel.Manipulators;
    if (trace) logInf(LogCategory::Progress, "allocate manipulators memory @{}", id);
    auto chain = chainOf(*target.context);
    for (size_t i = 0; i < chain.size(); ++i) {
        std::lock_guard lock(chain[i]->Lock);
        chain[i]->StopFlag = chain[i]->StartedFlag = chain[i]->StoppedFlag = false;
        chain[i]->HoldFlag = false;
        if (!chain[i]->Events.allocate(streamRecords())) return false;
        if (trace)
            logInf(LogCategory::Progress, "{} ({} of {} manipulators) allocated @{}", chain[i]->Name, i + 1,
                   chain.size(), id);
    }
    if (trace) logInf(LogCategory::Progress, "allocate manipulators memory complete @{}", id);
    return true;
}

void addManisStore(const DeviceRef &target, Run &run, const CopyStoreStarter &startCopyStore)
{
    MeasContext &context = *target.context;
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "AddManisStore @{}", target.device->ID);
    auto record = std::make_shared<Manipulator>();
    record->Name = "Store";
    record->Type = ManisType::Store;
    record->HighWater = streamRecords();
    record->Events.Capacity =
        run.Request.Kind == MeasKind::Unfold ? run.Request.UnfoldCapacity : streamRecords();
    record->StartedFlag = run.Request.Kind == MeasKind::Raw; // nobody reads it
    {
        ChainLocks locks(context);
        record->Index = record->ChainIndex = static_cast<int32_t>(context.Manis.size());
        record->NextIndex = record->Index + 1;
        context.Manis.push_back(record);
    }
    if (run.Request.Kind != MeasKind::Raw && run.Request.Kind != MeasKind::Unfold) {
        if (LogLevel.Manipulators)
            logInf(LogCategory::Progress, "AddManisStore: {} @{}", record->Index.load(), target.device->ID);
        std::this_thread::sleep_for(300ms); // the stages and the host settle before data flow
        startCopyStore(record);
    }
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "store.size {} @{}", record->Events.Capacity, target.device->ID);
}

bool allocateFinalStore(const DeviceRef &target)
{
    auto last = lockLast(*target.context);
    return last.record && last.record->Events.allocate(streamRecords());
}

namespace {

std::shared_ptr<Manipulator> finalRecord(MeasContext &context)
{
    for (const auto &record : chainOf(context))
        if (record->Type == ManisType::Store) return record;
    return nullptr;
}

// A run that is aborted leaves what nobody will take.
void waitEmpty(const DeviceRef &target, Manipulator &record, const std::function<void()> &everyTurn)
{
    while (!target.context->AbortRequested) {
        uint64_t left;
        {
            std::lock_guard lock(record.Lock);
            left = record.Events.Count;
        }
        if (left == 0) return;
        if (LogLevel.Manipulators)
            logInf(LogCategory::Progress, "wait for buffer empty: {} @{}", left, target.device->ID);
        everyTurn();
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace

void removeManisStore(const DeviceRef &target, Run &run, const std::function<void()> &everyTurn)
{
    MeasContext &context = *target.context;
    auto record = finalRecord(context);
    if (!record) return;
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "RemManisStore {} @{}", record->Index.load(), target.device->ID);
    if (target.device->MeasMode != MeasMode::Histogramming) waitEmpty(target, *record, everyTurn);
    record->StopFlag = true;
    if (run.CopyStore.joinable()) {
        while (!run.CopyStoreDone) { // it may be waiting for the host, where a sequence began during the run
            everyTurn();
            std::this_thread::sleep_for(1ms);
        }
        run.CopyStore.join();
    }

    ChainLocks locks(context);
    record->Events.free();
    bool wasLast = context.Manis.back() == record;
    std::erase(context.Manis, record);
    if (!wasLast) rearrange(*target.device, context); // a stage came during the run
}

} // namespace Tessel
