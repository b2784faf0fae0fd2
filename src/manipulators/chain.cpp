#include "manipulators/chain.h"

#include "devices/result.h"
#include "log/log.h"
#include "manipulators/numbering.h"
#include "settings/system_ini.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace Tessel {

using namespace std::chrono_literals;

ChainLocks::ChainLocks(MeasContext &context) : pipeline(context.PipelineLock), records(context.Manis)
{
    for (const auto &record : records) recordLocks.emplace_back(record->Lock);
    manis = std::unique_lock(context.ManisLock);
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

void failPass(const StageRef &stage, const char *why) noexcept
{
    if (stage.context->Measuring) stage.context->AbortRequested = true;
    try {
        logErr(LogCategory::General, "Device: {} failed: {} @{}", stage.record->Name, why, stage.device->ID);
    } catch (...) { // not even memory for the line
    }
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

bool addStage(const DeviceRef &target, std::shared_ptr<Manipulator> record, std::string_view nameFormat,
              std::function<void(StageRef)> threadFunction)
{
    Device &device = *target.device;
    auto &chain = target.context->Manis;
    record->Index = static_cast<int32_t>(chain.size());
    record->Name = fmt::format(fmt::runtime(nameFormat), numberInName(device, *target.context, *record));
    record->HighWater = streamRecords() / 4;
    if (target.context->Closed) {
        logErr(LogCategory::General, "Config: the device is closed, {} is not added @{}", record->Name,
               device.ID);
        return false;
    }
    chain.push_back(record);
    if (channelsMade(device, chain) > maxChannels) {
        logErr(LogCategory::General, "Config: more than {} channels, {} is not added @{}", maxChannels,
               record->Name, device.ID);
        chain.pop_back();
        return false;
    }
    StageRef stage{target.device, target.context, record};
    try {
        record->Thread = std::thread(
            [stage, threadFunction = std::move(threadFunction)] { runStageThread(stage, threadFunction); });
    } catch (...) {
        chain.pop_back(); // a stage without a thread would hold up every run
        throw;
    }
    rearrange(device, *target.context);
    return true;
}

namespace {

// Under the record's lock, in which a stage also decides to enter a run: one that hasn't entered won't.
bool askToStop(Manipulator &record, bool exit)
{
    std::lock_guard lock(record.Lock);
    record.StopFlag = true;
    if (exit) record.ExitFlag = true;
    return record.StartedFlag;
}

void logStage(std::string_view format, const Manipulator &record, const Device &device)
{
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, fmt::runtime(format), record.Name, device.ID);
}

void stopStage(const DeviceRef &target, Manipulator &record, bool exit, const std::function<void()> &everyTurn)
{
    bool entered = askToStop(record, exit);
    logStage("wait manipulator: {} @{} stopped", record, *target.device);
    while (entered && !record.StoppedFlag && !record.ThreadGone) {
        everyTurn();
        std::this_thread::sleep_for(1ms);
    }
    logStage("manipulator: {} @{} stopped", record, *target.device);
    std::lock_guard lock(record.Lock);
    record.Events.free();
}

} // namespace

void stopManipulators(const DeviceRef &target, bool exit, const std::function<void()> &everyTurn)
{
    auto chain = chainOf(*target.context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "stop manipulators {} @{}", chain.size(), target.device->ID);
    for (const auto &record : chain)
        if (record->Type != ManisType::Store) stopStage(target, *record, exit, everyTurn);
}

void stopLatecomers(const DeviceRef &target, const std::function<void()> &everyTurn)
{
    for (const auto &record : chainOf(*target.context))
        if (record->StartedFlag && !record->StoppedFlag) stopStage(target, *record, false, everyTurn);
}

namespace {

constexpr int stopTurns = 10000;

// Decoding stands still while the gate is held; a gate that somebody keeps is not waited for longer than a
// turn.
class DecodingHeld
{
public:
    explicit DecodingHeld(Gate &readGate) : gate(readGate) { take(); }
    void take() { held = gate.acquireFor(1s); }
    void release()
    {
        if (held) gate.release();
        held = false;
    }

private:
    Gate &gate;
    bool held = false;
};

bool waitStopped(const Manipulator &record, DecodingHeld &decoding)
{
    for (int turn = 0; turn < stopTurns; ++turn) {
        bool gone = record.ThreadGone; // looked at first: the flag is a thread's last word
        if (record.StoppedFlag) return true;
        if (gone) return false;
        decoding.release();
        std::this_thread::sleep_for(1ms);
        decoding.take();
        std::this_thread::sleep_for(9ms);
    }
    return false;
}

// A thread that can't be stopped keeps its record and goes on by itself.
void partFrom(std::thread &thread, const Manipulator &record)
{
    if (!thread.joinable()) return;
    if (record.ThreadGone)
        thread.join();
    else
        thread.detach();
}

void endStage(const DeviceRef &target, Manipulator &record)
{
    askToStop(record, true);
    DecodingHeld decoding(target.context->ReadGate);
    if (waitStopped(record, decoding)) {
        logStage("join manipulator: {} @{}", record, *target.device);
        if (record.Thread.joinable()) record.Thread.join();
        decoding.release();
        logStage("joined manipulator: {} @{}", record, *target.device);
    } else {
        // Whoever can't be stopped may still write: the gate stays taken until the next run starts.
        if (record.ThreadGone) decoding.release();
        reportDeviceError(LogCategory::General, "Could not stop Mainpulator: {} @{}", record.Name,
                          target.device->ID);
        partFrom(record.Thread, record);
    }
    if (record.ThreadGone) { // what a live run still writes to it is dropped, and never waited for
        std::lock_guard lock(record.Lock);
        record.Events.free();
    }
    --target.context->ManisChans;
}

} // namespace

void endStage(const DeviceRef &target, uint32_t index)
{
    std::lock_guard oneEnd(target.context->EndLock);
    auto chain = chainOf(*target.context);
    if (index < chain.size() && chain[index]->Type != ManisType::Store) endStage(target, *chain[index]);
}

void removeStages(const DeviceRef &target)
{
    MeasContext &context = *target.context;
    std::lock_guard oneEnd(context.EndLock);
    auto chain = chainOf(context);
    std::erase_if(chain, [](const auto &record) { return record->Type == ManisType::Store; }); // the run's own
    for (const auto &record : chain) askToStop(*record, true); // they end side by side
    for (auto record = chain.rbegin(); record != chain.rend(); ++record) {
        endStage(target, **record);
        ChainLocks locks(context);
        std::erase(context.Manis, *record);
        linkRecords(context.Manis);
    }
}

} // namespace Tessel
