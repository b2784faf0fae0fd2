#include "manipulators/chain.h"

#include "log/log.h"
#include "manipulators/numbering.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel {

ChainLocks::ChainLocks(MeasContext &locked) : context(locked)
{
    context.PipelineLock.lock();
    for (const auto &record : context.Manis) record->Lock.lock();
    context.ManisLock.lock();
}

ChainLocks::~ChainLocks()
{
    context.ManisLock.unlock();
    for (auto record = context.Manis.rbegin(); record != context.Manis.rend(); ++record)
        (*record)->Lock.unlock();
    context.PipelineLock.unlock();
}

void ChainLocks::append(std::shared_ptr<Manipulator> record)
{
    context.ManisLock.unlock(); // it comes after the records' locks
    record->Lock.lock();
    context.ManisLock.lock();
    Manipulator &appended = *record;
    try {
        context.Manis.push_back(std::move(record));
    } catch (...) {
        appended.Lock.unlock();
        throw;
    }
}

void ChainLocks::remove(const std::shared_ptr<Manipulator> &record)
{
    const auto removed = record; // stays alive until it is unlocked
    if (std::erase(context.Manis, removed) > 0) removed->Lock.unlock();
}

LockedRecord lockNext(MeasContext &context, const Manipulator &writer)
{
    return passAndLock(context, [&writer](const auto &chain) {
        auto next = static_cast<size_t>(writer.NextIndex);
        return next < chain.size() ? chain[next] : nullptr;
    });
}

LockedRecord lockFirst(MeasContext &context)
{
    return passAndLock(context, [](const auto &chain) -> std::shared_ptr<Manipulator> {
        if (chain.empty()) return nullptr;
        auto first = static_cast<size_t>(chain.front()->ChainIndex);
        return first < chain.size() ? chain[first] : nullptr;
    });
}

LockedRecord lockLast(MeasContext &context)
{
    return passAndLock(context, [](const auto &chain) -> std::shared_ptr<Manipulator> {
        auto last = std::find_if(chain.rbegin(), chain.rend(),
                                 [](const auto &record) { return record->Type == ManisType::Store; });
        return last == chain.rend() ? nullptr : *last;
    });
}

std::unique_lock<std::mutex> lockOwn(MeasContext &context, const std::shared_ptr<Manipulator> &own)
{
    return passAndLock(context, [&own](const auto &) { return own; }).lock;
}

std::vector<std::shared_ptr<Manipulator>> chainOf(MeasContext &context)
{
    std::lock_guard lock(context.PipelineLock);
    return context.Manis;
}

std::shared_ptr<Manipulator> recordAt(MeasContext &context, size_t index)
{
    std::lock_guard lock(context.PipelineLock);
    return index < context.Manis.size() ? context.Manis[index] : nullptr;
}

void failPass(const StageRef &stage, const char *why) noexcept
{
    auto run = stage.run ? stage.run : currentRun(stage.context);
    if (run && isMeasuring(*run)) abortRun(stage.context, *run);
    tryToLog([&] {
        logErr(LogCategory::General, "Device: {} failed: {} @{}", stage.record->Name, why, stage.device.ID);
    });
}

namespace {

void runStageThread(const StageRef &stage, const std::function<void(StageRef)> &threadFunction)
{
    try {
        threadFunction(stage);
    } catch (const std::exception &failure) {
        failPass(stage, failure.what());
    }
    stage.record->ThreadGone = true;
    wake(*stage.record);
    if (auto run = currentRun(stage.context)) wake(run->Control);
}

uint64_t numberInName(const Device &device, const MeasContext &context, const Manipulator &record)
{
    switch (record.Type) {
    case ManisType::CountRate:
    case ManisType::SubStream: return static_cast<uint64_t>(record.Index.load() + device.NumChans + 1);
    default: return numAllChans(device, context);
    }
}

} // namespace

bool addStage(ChainLocks &locks, const DeviceRef &target, std::shared_ptr<Manipulator> record,
              std::string_view nameFormat, std::function<void(StageRef)> threadFunction)
{
    Device &device = target->device;
    const auto &chain = target->context.Manis;
    record->Index = static_cast<int32_t>(chain.size());
    record->Name = fmt::format(fmt::runtime(nameFormat), numberInName(device, target->context, *record));
    record->HighWater = streamRecords() / 4;
    if (target->context.Closed) {
        logErr(LogCategory::General, "Config: the device is closed, {} is not added @{}", record->Name,
               device.ID);
        return false;
    }
    locks.append(record);
    if (channelsMade(device, chain) > maxChannels) {
        logErr(LogCategory::General, "Config: more than {} channels, {} is not added @{}", maxChannels,
               record->Name, device.ID);
        locks.remove(record);
        return false;
    }
    StageRef stage{target, record};
    try {
        record->Thread = std::thread(
            [stage, threadFunction = std::move(threadFunction)] { runStageThread(stage, threadFunction); });
    } catch (...) {
        locks.remove(record); // without its thread it would hold up every run
        throw;
    }
    rearrange(device, target->context);
    return true;
}

bool askToStop(MeasContext &context, Manipulator &record, bool exit)
{
    bool entered;
    {
        // A stage enters a run under this lock: one that hasn't entered won't.
        std::lock_guard lock(record.Lock);
        record.StopFlag = true;
        if (exit) record.ExitFlag = true;
        entered = record.StartedFlag;
    }
    wakeChain(context); // it may wait for room in the next store
    return entered;
}

bool hasLeft(const Manipulator &record)
{
    return record.StoppedFlag || record.ThreadGone;
}

void waitLeft(Manipulator &record)
{
    std::unique_lock lock(record.Lock);
    record.Changed.wait(lock, [&record] { return hasLeft(record); });
}

namespace {

void logStage(std::string_view format, const Manipulator &record, const Device &device) noexcept
{
    if (!LogLevel.Manipulators) return;
    tryToLog([&] { logInf(LogCategory::Progress, fmt::runtime(format), record.Name, device.ID); });
}

// Without arrays a store drops what is written to it, so nobody waits for room in it.
void releaseStore(Manipulator &record)
{
    {
        std::lock_guard lock(record.Lock);
        release(record.Events);
    }
    record.Changed.notify_all();
}

} // namespace

namespace {

void stopStage(const DeviceRef &target, Manipulator &record, bool exit,
               const std::function<void(Manipulator &)> &wait)
{
    const bool entered = askToStop(target->context, record, exit);
    logStage("wait manipulator: {} @{} stopped", record, target->device);
    if (entered) wait(record);
    logStage("manipulator: {} @{} stopped", record, target->device);
    releaseStore(record);
}

} // namespace

void stopLatecomers(const DeviceRef &target, const std::function<void(Manipulator &)> &wait)
{
    for (size_t i = 0; auto record = recordAt(target->context, i); ++i)
        if (record->StartedFlag && !record->StoppedFlag) stopStage(target, *record, false, wait);
}

void stopManipulators(const DeviceRef &target, bool exit, const std::function<void(Manipulator &)> &wait)
{
    if (LogLevel.Manipulators)
        tryToLog([&] {
            logInf(LogCategory::Progress, "stop manipulators {} @{}", chainOf(target->context).size(),
                   target->device.ID);
        });
    for (size_t i = 0; auto record = recordAt(target->context, i); ++i)
        if (record->Type != ManisType::Store) stopStage(target, *record, exit, wait);
}

namespace {

// A thread that can't be stopped is let go, and keeps its stage alive.
void partFrom(std::thread &thread, const Manipulator &record)
{
    if (!thread.joinable()) return;
    if (record.ThreadGone)
        thread.join();
    else
        thread.detach();
}

// Decoding goes on meanwhile: EndLock is all that is held, and no thread of the run works under it.
void endStage(const DeviceRef &target, Manipulator &record)
{
    askToStop(target->context, record, true);
    {
        std::unique_lock lock(record.Lock);
        record.Changed.wait_for(lock, Pace::stageLeaves, [&record] { return hasLeft(record); });
    }
    if (record.StoppedFlag) {
        logStage("join manipulator: {} @{}", record, target->device);
        if (record.Thread.joinable()) record.Thread.join();
        logStage("joined manipulator: {} @{}", record, target->device);
    } else {
        tryToLog([&] {
            logErr(LogCategory::General, "Could not stop Mainpulator: {} @{}", record.Name, target->device.ID);
        });
        partFrom(record.Thread, record);
    }
    releaseStore(record); // also where the stage goes on: who writes to it isn't to wait for it
    --target->context.ManisChans;
}

} // namespace

void endStage(const DeviceRef &target, uint32_t index)
{
    std::lock_guard oneEnd(target->context.EndLock);
    auto record = recordAt(target->context, index);
    if (record && record->Type != ManisType::Store) endStage(target, *record);
}

namespace {

// Of a chain that is being cleared a run awaits no stage that is gone.
class Removal
{
public:
    explicit Removal(MeasContext &cleared) : context(cleared) { ++context.Removals; }
    ~Removal()
    {
        --context.Removals;
        if (auto run = currentRun(context)) wake(run->Control);
    }
    Removal(const Removal &) = delete;
    Removal &operator=(const Removal &) = delete;

private:
    MeasContext &context;
};

} // namespace

void removeStages(const DeviceRef &target)
{
    MeasContext &context = target->context;
    const Removal removal(context);
    std::lock_guard oneEnd(context.EndLock);
    auto chain = chainOf(context);
    std::erase_if(chain, [](const auto &record) { return record->Type == ManisType::Store; }); // the run's
    for (const auto &record : chain) askToStop(context, *record, true);                        // all at once
    for (auto record = chain.rbegin(); record != chain.rend(); ++record) {
        endStage(target, **record);
        ChainLocks locks(context);
        locks.remove(*record);
        linkRecords(context.Manis);
    }
}

} // namespace Tessel
