// Import stream: merges events of another device, the source, into this one's stream, in the order of their
// times. The source's run, which measures for this stage, leaves them in a block.
//
// The thread works on two devices and holds locks of one at a time: it moves what the source has to its own
// arrays under the source's ManisLock alone, and merges from there under a lock of its own device. So devices
// never wait for each other's locks.
#include "manipulators/import_stream.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/run_copy.h"
#include "stream/times.h"
#include "threads/losses.h"

#include <algorithm>
#include <array>
#include <set>

namespace Tessel {

namespace {

constexpr StageWords importWords = {
    .Created = "ImportMThread created: {} @{} from {}",
    .Started = "ImportMThread started: {} @{} from {}",
    .Stopped = "ImportMThread stopped: {} @{} from {}",
    .Exited = "ImportMThread exited: {} @{} from {}",
    .Overrun = nullptr, // it names the source too
};

// What the source's run leaves for others; no count: nothing. Its ManisLock is held.
EventBlock sourceBlock(MeasContext &source, const Run &run)
{
    const EventBlock &block = run.Offered;
    if (!block.Times || !block.Channels) return {};
    const bool isLive = std::any_of(source.Manis.begin(), source.Manis.end(),
                                    [](const auto &record) { return record->Type == ManisType::Store; });
    return !block.IsHosts || isLive ? block : EventBlock();
}

// Nothing more comes into the block.
bool isDone(const Run &run)
{
    return run.MeasurementDone || hasReached(run, RunPhase::Finished);
}

// From here on the source's run wakes this stage. Its ManisLock is held.
void joinImporters(ImportState &import, const StageRef &stage, const std::shared_ptr<Run> &run)
{
    if (import.SourceRun.lock() == run) return;
    import.SourceRun = run;
    import.SourceLosses = {};
    run->Importers.push_back(stage.record);
    stage.record->SourceChanged = true;
}

} // namespace

bool importsFrom(const DeviceLookUp &devices, const DeviceRef &from, const std::string &to)
{
    std::set<std::string> seen;
    std::vector<DeviceRef> open{from};
    while (!open.empty()) {
        const DeviceRef device = std::move(open.back());
        open.pop_back();
        if (device->device.ID == to) return true;
        if (!seen.insert(device->device.ID).second) continue;
        for (const auto &record : chainOf(device->context))
            if (record->Type == ManisType::ImportStream) open.push_back(devices.Find(record->SourceId));
    }
    return false;
}

// The source has a run that measures for others, or events of one are left. A source that itself needs this
// device's events is never ready: each would wait for the other.
bool isReady(ImportState &import, const StageRef &stage)
{
    DeviceRef source = import.Devices->Find(stage.record->SourceId);
    auto run = currentRun(source->context);
    if (!run || importsFrom(*import.Devices, source, stage.device.ID)) return false;
    std::lock_guard lock(source->context.ManisLock);
    const EventBlock block = sourceBlock(source->context, *run);
    if (!block.Count || (*block.Count == 0 && isDone(*run))) return false;
    import.Source = source;
    joinImporters(import, stage, run);
    return true;
}

namespace {

// The events that are dealt with go, once they are most of the store or their room is needed.
void dropUsed(ImportState &import, uint64_t needed)
{
    EventStore &held = import.Imported;
    const uint64_t left = held.Count - import.Cursor;
    if (import.Cursor <= left && roomOf(held) >= needed) return;
    std::copy_n(held.Times.get() + import.Cursor, left, held.Times.get());
    std::copy_n(held.Channels.get() + import.Cursor, left, held.Channels.get());
    held.Count = left;
    import.Cursor = 0;
}

// An event before the start of this device's run has no time in it, and is dropped.
template <class Time>
void appendImported(ImportState &import, Time time, const EventBlock &block, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t ps = time.ps(block.Times[i]);
        const uint64_t shifted = ps + static_cast<uint64_t>(import.Offset);
        if (import.Offset < 0 ? shifted > ps : shifted < ps) continue;
        append(import.Imported, shifted, block.Channels[i]);
    }
}

// Takes `count` events off the block's front.
void takeFrom(ImportState &import, const StreamFacts &source, const EventBlock &block, uint64_t count)
{
    withTime(source, [&](auto time) { appendImported(import, time, block, count); });
    const uint64_t left = *block.Count - count;
    std::copy_n(block.Times + count, left, block.Times);
    std::copy_n(block.Channels + count, left, block.Channels);
    *block.Count = left;
}

void warnSourceOverrun(const StageRef &stage, uint64_t count, uint64_t held)
{
    logWrn(
        LogCategory::Device,
        "Device: Import Source Buffer overrun - clearing!\r\n{}: {} Counts\r\n{}: {} Counts\r\n{}@{} from {}",
        stage.record->SourceId, count, stage.device.ID, held, stage.record->Name, stage.device.ID,
        stage.record->SourceId);
}

// What the source's run has lost can't come here either. Its ManisLock may be held.
void takeUpLosses(ImportState &import, Run &source, Run &run)
{
    Loss all;
    for (const Loss &loss : lossesOf(source).Places) {
        all.Occasions += loss.Occasions;
        all.Lost += loss.Lost;
    }
    if (all.Occasions == import.SourceLosses.Occasions) return;
    noteLoss(run, LossPlace::Import, all.Lost - import.SourceLosses.Lost);
    import.SourceLosses = all;
}

} // namespace

// A recorded file takes as much as it has room for. An instrument takes all; if that is too much, what it had
// is lost.
void beforeTurn(ImportState &import, const StageRef &stage)
{
    if (!stage.record->SourceChanged.exchange(false) || !stage.record->Enabled) return;
    MeasContext &context = import.Source->context;
    auto run = currentRun(context);
    const bool done = isDone(*run); // looked at before the block
    std::unique_lock lock(context.ManisLock);
    joinImporters(import, stage, run);
    takeUpLosses(import, *run, *stage.run);
    const EventBlock block = sourceBlock(context, *run);
    const uint64_t offered = block.Count ? *block.Count : 0;
    dropUsed(import, stage.run->Facts.MayWait ? 0 : offered);
    const uint64_t held = import.Imported.Count - import.Cursor;
    uint64_t room = roomOf(import.Imported);
    if (offered > room && !stage.run->Facts.MayWait) {
        warnSourceOverrun(stage, offered, held);
        noteLoss(*stage.run, LossPlace::Import, held);
        import.Imported.Count = import.Cursor = 0;
        room = import.Imported.Capacity;
    }
    const uint64_t taken = std::min(offered, room);
    if (taken > 0) {
        takeFrom(import, run->Facts, block, taken);
        import.Waits = false;
        noteTaken(*run);
    }
    import.SourceOver = done && taken == offered;
    import.SourceFull = taken < offered;
    lock.unlock();
    if (taken > 0) run->BlockTaken.notify_all();
}

void logOverrun(const ImportState &import, const StageRef &stage, const Manipulator &next)
{
    const std::string full = import.Imported.Count == 0 ? fmt::format(" {} is full", next.Name) : std::string();
    logWrn(LogCategory::Device, "Device: Import Destination Buffer overrun - clearing!{} {}@{} from {}", full,
           stage.record->Name, stage.device.ID, stage.record->SourceId);
}

void startPass(ImportState &import, const StageRef &stage)
{
    if (!allocate(import.Imported, streamRecords())) throw std::bad_alloc();
    import.Cursor = import.LastWritten = 0;
    import.SourceOver = import.SourceFull = import.Waits = false;
    stage.record->SourceChanged = true;
}

bool finishPass(ImportState &import, const StageRef &, EventStore *)
{
    release(import.Imported);
    return true;
}

namespace {

// An own event without later imported ones waits; at the end, when no more will come, it is dropped.
bool isAtTheEnd(const ImportState &import, const StageRef &stage)
{
    const Run &run = *stage.run;
    if (isAborted(run)) return true;
    // A recorded file is read long before its source has come as far.
    const bool mayWait = run.Facts.MayWait && !run.Control.StopByHost;
    return import.SourceOver || (hasReached(run, RunPhase::InputDone) && !mayWait);
}

template <class Time>
class ImportWork
{
public:
    ImportWork(ImportState &state, const StageRef &importing, Time rawTime, EventStore &store)
        : import(state), stage(importing), time(rawTime), out(store)
    {
        const Manipulator &record = *stage.record;
        output.fill(notImported);
        for (size_t i = 0; i < std::min(record.InChans.size(), record.OutChans.size()); ++i)
            output[record.InChans[i]] = record.OutChans[i];
        if constexpr (Time::isT3)
            period = static_cast<uint64_t>(std::max<int64_t>(stage.run->Facts.SyncPeriodPs, 1));
    }

    uint64_t run(const Piece &in)
    {
        import.Waits = false;
        for (uint64_t at = 0; at < in.Count; ++at) {
            const uint64_t ps = time.ps(in.Times[at]);
            writeImported(ps);
            if (roomOf(out) == 0) return at;
            if (import.Cursor < import.Imported.Count) {
                append(out, in.Times[at], in.Channels[at]);
                import.LastWritten = ps;
            } else if (!isAtTheEnd(import, stage)) {
                import.Waits = true;
                return at;
            }
        }
        return in.Count;
    }

private:
    static constexpr uint8_t notImported = 255;

    // Writes the imported events before `ownPs`; skips those of other channels and those that come too late.
    void writeImported(uint64_t ownPs)
    {
        for (; import.Cursor < import.Imported.Count && roomOf(out) > 0; ++import.Cursor) {
            const uint64_t ps = import.Imported.Times[import.Cursor];
            if (ownPs <= ps) return;
            const uint8_t channel = output[import.Imported.Channels[import.Cursor]];
            if (ps < import.LastWritten || channel == notImported) continue;
            append(out, Time::isT3 ? ps / period : ps,
                   channel); // in T3 as hosts know it: neither shift nor dtime
            import.LastWritten = ps;
        }
    }

    ImportState &import;
    const StageRef &stage;
    const Time time;
    EventStore &out;
    std::array<uint8_t, 256> output;
    uint64_t period = 1;
};

} // namespace

uint64_t work(ImportState &import, const StageRef &stage, Piece in, EventStore &out)
{
    const uint64_t done = withTime(stage.run->Facts, [&](auto time) {
        return ImportWork<decltype(time)>(import, stage, time, out).run(in);
    });
    if (import.SourceFull) stage.record->SourceChanged = true; // what was used has left room for more
    return done;
}

bool waits(const ImportState &import, const StageRef &stage)
{
    return import.Waits && !isAtTheEnd(import, stage);
}

int32_t addImportStream(const DeviceRef &target, const ImportRequest &request)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::ImportStream;
    record->InChans = channelBytes(request.Channels);
    if (record->InChans.empty()) record->InChans = {1};
    record->Params = {static_cast<uint64_t>(int64_t{request.OffsetPs})};
    record->Params2 = {request.Start};
    record->SourceId = request.SourceId;
    record->KeepFlag = true;

    std::string channels;
    for (uint8_t channel : record->InChans) channels = fmt::format("{} {} ", channels, channel);
    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMImport {} {} {} @{}", request.SourceId, channels, request.OffsetPs,
               target->device.ID);
    auto thread = [offset = request.OffsetPs, devices = request.Devices](StageRef stage) {
        runStage(stage, importWords, ImportState{.Offset = offset, .Devices = devices});
    };
    if (!addStage(locks, target, record, "Import_{}", thread)) return -1;
    return record->OutChans.front();
}

} // namespace Tessel
