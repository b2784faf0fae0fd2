#include "manipulators/chain.h"

#include "devices/result.h"
#include "log/log.h"
#include "manipulators/numbering.h"
#include "settings/system_ini.h"

#include <fmt/format.h>

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
    return passAndLock(context, [](const auto &chain) { return chain.empty() ? nullptr : chain.back(); });
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

namespace {

// A stage that fails takes its run with it, and nothing else.
void runStageThread(const StageRef &stage, const std::function<void(StageRef)> &threadFunction)
{
    try {
        threadFunction(stage);
    } catch (const std::exception &failure) {
        logErr(LogCategory::General, "Device: {} failed: {} @{}", stage.record->Name, failure.what(),
               stage.device->ID);
        if (stage.context->Measuring) stage.context->AbortRequested = true;
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
    chain.push_back(record);
    if (channelsMade(device, chain) > maxChannels) {
        logErr(LogCategory::General, "Config: more than {} channels, {} is not added @{}", maxChannels,
               record->Name, device.ID);
        chain.pop_back();
        return false;
    }
    StageRef stage{target.device, target.context, record};
    record->Thread = std::thread(
        [stage, threadFunction = std::move(threadFunction)] { runStageThread(stage, threadFunction); });
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

} // namespace

void stopManipulators(const DeviceRef &target, bool exit, const std::function<void()> &everyTurn)
{
    auto chain = chainOf(*target.context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "stop manipulators {} @{}", chain.size(), target.device->ID);
    for (const auto &record : chain) {
        if (record->Type == ManisType::Store) continue;
        bool entered = askToStop(*record, exit);
        logStage("wait manipulator: {} @{} stopped", *record, *target.device);
        while (entered && !record->StoppedFlag && !record->ThreadGone) {
            everyTurn();
            std::this_thread::sleep_for(1ms);
        }
        logStage("manipulator: {} @{} stopped", *record, *target.device);
        std::lock_guard lock(record->Lock);
        record->Events.free();
    }
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
        // The gate stays taken until the next run starts.
        reportDeviceError(LogCategory::General, "Could not stop Mainpulator: {} @{}", record.Name,
                          target.device->ID);
        partFrom(record.Thread, record);
    }
    --target.context->ManisChans;
}

} // namespace

void endStage(const DeviceRef &target, uint32_t index)
{
    auto chain = chainOf(*target.context);
    if (index < chain.size()) endStage(target, *chain[index]);
}

void removeStages(const DeviceRef &target)
{
    auto chain = chainOf(*target.context);
    for (const auto &record : chain) askToStop(*record, true); // they end side by side
    for (auto record = chain.rbegin(); record != chain.rend(); ++record) {
        endStage(target, **record);
        ChainLocks locks(*target.context);
        std::erase(target.context->Manis, *record);
    }
}

} // namespace Tessel
