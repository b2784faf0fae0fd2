#include "manipulators/chain.h"

#include "devices/locked_device.h"
#include "log/log.h"
#include "manipulators/numbering.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel {

namespace {

using Stages = std::vector<std::shared_ptr<Manipulator>>;

Stages withStage(const Stages &chain, std::shared_ptr<Manipulator> record)
{
    Stages longer;
    longer.reserve(chain.size() + 1);
    longer = chain;
    longer.push_back(std::move(record));
    return longer;
}

} // namespace

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
    extend(withStage(context.Manis, std::move(record)));
}

void ChainLocks::extend(std::vector<std::shared_ptr<Manipulator>> longer) noexcept
{
    context.ManisLock.unlock(); // it comes after the records' locks
    longer.back()->Lock.lock();
    context.ManisLock.lock();
    context.Manis.swap(longer);
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

size_t chainLength(MeasContext &context)
{
    std::lock_guard lock(context.PipelineLock);
    return context.Manis.size();
}

std::shared_ptr<Manipulator> recordAt(MeasContext &context, size_t index)
{
    std::lock_guard lock(context.PipelineLock);
    return index < context.Manis.size() ? context.Manis[index] : nullptr;
}

void failPass(const StageRef &stage, const char *why) noexcept
{
    auto run = stage.run ? stage.run : currentRun(stage.context);
    if (run && isMeasuring(*run)) {
        stage.context.Description.StopReason = StopReason::Error;
        abortRun(stage.context, *run);
    }
    logErr(LogCategory::General, "Device: {} failed: {} @{}", stage.record->Name, why, stage.device.ID);
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
    case ManisType::SubStream:
        return static_cast<uint64_t>(record.Index.load() + valueOf(device, &DeviceConfig::NumChans) + 1);
    default: return numAllChans(device, context);
    }
}

} // namespace

bool addStage(ChainLocks &locks, const DeviceRef &target, std::shared_ptr<Manipulator> record,
              std::string_view nameFormat, std::function<void(StageRef)> threadFunction)
{
    const Device &device = target->device;
    MeasContext &context = target->context;
    record->Index = static_cast<int32_t>(context.Manis.size());
    record->Name = fmt::format(fmt::runtime(nameFormat), numberInName(device, context, *record));
    record->HighWater = streamRecords() / 4;
    if (context.Closed) {
        logErr(LogCategory::General, "Config: the device is closed, {} is not added @{}", record->Name,
               device.ID);
        return false;
    }
    Stages longer = withStage(context.Manis, record);
    if (channelsMade(device, longer) > maxChannels) {
        logErr(LogCategory::General, "Config: more than {} channels, {} is not added @{}", maxChannels,
               record->Name, device.ID);
        return false;
    }
    Numbering numbering = numberingOf(device, context, longer);
    StageRef stage{target, record};
    record->Thread = std::thread( // it waits for PipelineLock
        [stage, threadFunction = std::move(threadFunction)] { runStageThread(stage, threadFunction); });
    // From here on nothing can fail.
    locks.extend(std::move(longer));
    renumber(context, std::move(numbering));
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
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, fmt::runtime(format), record.Name, device.ID);
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
        logInf(LogCategory::Progress, "stop manipulators {} @{}", chainLength(target->context),
               target->device.ID);
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
        logErr(LogCategory::General, "Could not stop Mainpulator: {} @{}", record.Name, target->device.ID);
        partFrom(record.Thread, record);
    }
    releaseStore(record); // also where the stage goes on: who writes to it isn't to wait for it
    if (auto run = liveRun(target->context)) { // also one that has begun since the stage was asked to end
        run->LosesEndsOfBatches = true;
        wake(run->Control);
    }
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

// The last stage that was asked to end its thread; null: none. A stage that is added meanwhile isn't one.
std::shared_ptr<Manipulator> lastLeaving(MeasContext &context)
{
    std::lock_guard lock(context.PipelineLock);
    for (size_t i = context.Manis.size(); i-- > 0;)
        if (context.Manis[i]->ExitFlag) return context.Manis[i];
    return nullptr;
}

} // namespace

void removeStages(const DeviceRef &target)
{
    MeasContext &context = target->context;
    const Removal removal(context);
    std::lock_guard oneEnd(context.EndLock);
    for (size_t i = 0; auto record = recordAt(context, i); ++i)
        if (record->Type != ManisType::Store)
            askToStop(context, *record, true); // all at once; Store is the run's
    while (auto record = lastLeaving(context)) {
        endStage(target, *record);
        ChainLocks locks(context);
        locks.remove(record);
        linkRecords(context.Manis);
    }
}

} // namespace Tessel
