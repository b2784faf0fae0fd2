// UnfoldThread: hands the decoded stream of a T2 or T3 run to the caller's block, or to the block from which an
// import stage of another device takes it. On a recorded file nothing is lost: the run stands still until the
// block has room.
#include "measurements/unfold.h"

#include "devices/result.h"
#include "measurements/hosts_count.h"
#include "measurements/measurement.h"
#include "threads/losses.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <new>

namespace Tessel {

EventBlock hostsBlock(const RunRequest &request)
{
    return {.Times = request.UnfoldTimes,
            .Channels = request.UnfoldChannels,
            .Capacity = request.UnfoldCapacity,
            .Count = request.UnfoldCount,
            .IsHosts = true};
}

namespace {

EventBlock blockOn(EventStore &store)
{
    return {.Times = store.Times.get(),
            .Channels = store.Channels.get(),
            .Capacity = store.Capacity,
            .Count = &store.Count};
}

bool takesEvents(const EventBlock &block)
{
    return block.Capacity > 0 && (block.Times || block.Channels);
}

// The count is the host's to write, too.
uint64_t heldIn(const EventBlock &block)
{
    return std::min(*block.Count, block.Capacity);
}

uint64_t roomOf(const EventBlock &block)
{
    return block.Capacity - heldIn(block);
}

void append(const EventBlock &block, EventBatch batch, uint64_t first, uint64_t size)
{
    if (block.Times) std::copy_n(batch.Times + first, size, block.Times + *block.Count);
    if (block.Channels) std::copy_n(batch.Channels + first, size, block.Channels + *block.Count);
    *block.Count += size;
}

} // namespace

Placed placeEvents(const EventBlock &block, const StreamFacts &facts, EventBatch batch, uint64_t &done)
{
    const uint64_t left = batch.Count - done, room = roomOf(block);
    const bool fits = left <= room;
    if (!takesEvents(block) || (!fits && !facts.MayWait && !facts.IsLive)) {
        done = batch.Count;
        return Placed::All;
    }
    if (!fits && facts.MayWait) {
        const uint64_t size = left > block.Capacity ? room : 0;
        append(block, batch, done, size);
        done += size;
        return Placed::Some;
    }
    const uint64_t size = std::min(left, block.Capacity);
    if (!fits) *block.Count = 0;
    append(block, batch, batch.Count - size, size);
    done = batch.Count;
    return fits ? Placed::All : size < left ? Placed::LastOnly : Placed::Overwritten;
}

void takeUnfoldBlock(MeasContext &context, uint64_t *times, uint8_t *channels, uint64_t *count)
{
    auto run = currentRun(context);
    if (!run || run->Request.Kind != MeasKind::Unfold) return;
    std::unique_lock lock(context.ManisLock);
    const EventBlock &block = resultAs<UnfoldEvents>(*run).Block;
    const uint64_t held = heldIn(block);
    if (held == 0) return;
    if (times && block.Times) std::copy_n(block.Times, held, times);
    if (channels && block.Channels) std::copy_n(block.Channels, held, channels);
    if (count) *count = held;
    *block.Count = 0;
    noteTaken(*run);
    lock.unlock();
    run->BlockTaken.notify_all();
}

uint64_t timesOfChannel(const uint8_t *channels, const uint64_t *times, uint64_t count, int32_t channel,
                        uint64_t *result)
{
    uint64_t found = 0;
    for (uint64_t i = 0; i < count; ++i) {
        if (channels[i] != channel || (channels[i] & ChannelCode::Special)) continue;
        if (result) result[found] = times[i];
        ++found;
    }
    return found;
}

namespace {

// Whether a run of another device, or one that is about to begin, has a stage that imports from this device. No
// lock may be held, since locks of other devices are taken here.
bool isImported(const RunRef &ref)
{
    auto importsIt = [&ref](const auto &record) {
        return record->Type == ManisType::ImportStream && record->SourceId == ref.device.ID;
    };
    for (const DeviceRef &other : ref.run->Devices->All()) {
        if (other->context.Starts == 0 && !liveRun(other->context)) continue;
        auto chain = chainOf(other->context);
        if (std::any_of(chain.begin(), chain.end(), importsIt)) return true;
    }
    return false;
}

class UnfoldMeasurement
{
public:
    const char *name = UnfoldEvents::Steps.ThreadName;

    explicit UnfoldMeasurement(UnfoldEvents &ofRun) : result(ofRun), block(ofRun.Block) {}

    void prepare(RunRef &run)
    {
        highWater = takesEvents(block) ? block.Capacity : streamRecords();
        setHighWater(run.context, highWater);
    }

    // A host sees whole batches, as far as Store has room for one.
    uint64_t least(const RunRef &run) const
    {
        return block.IsHosts && run.run->Facts.MayWait ? finalCapacity(run.context) / 2 : 1;
    }

    void tellStart(RunRef &run) const
    {
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "UnfoldThread inputBuffSize {} @{}", highWater, run.device.ID);
    }

    void count(RunRef &ref, EventBatch batch, uint64_t, std::unique_lock<std::mutex> &manis)
    {
        Run &run = *ref.run;
        for (uint64_t done = 0; !isAborted(run);) {
            const uint64_t before = done, held = heldIn(block);
            const Placed placed = placeEvents(block, run.Facts, batch, done);
            if (placed == Placed::Overwritten || placed == Placed::LastOnly)
                tellOverrun(ref, placed, held + (done - before) - heldIn(block));
            if (done > before) tellTakers(ref, manis);
            if (placed != Placed::Some) return;
            if (!waitForRoom(ref, manis, batch.Count - done)) return;
        }
    }

    void finish(RunRef &run)
    {
        if (block.IsHosts && isImported(run)) keepForImport(run);
    }

private:
    // The host's block is the host's again once the run is over, and an import stage may not have taken all.
    void keepForImport(RunRef &run)
    {
        std::lock_guard lock(run.context.ManisLock);
        EventStore &kept = result.Own;
        if (!block.Times || !block.Channels || *block.Count == 0) return;
        if (!allocate(kept, *block.Count)) throw std::bad_alloc();
        append(blockOn(kept), {block.Times, block.Channels, *block.Count}, 0, *block.Count);
        *block.Count = 0;
        run.run->Offered = blockOn(kept);
    }

    void tellOverrun(RunRef &ref, Placed placed, uint64_t lost) const
    {
        logWrn(LogCategory::Device, "Device: Unfold{} buffer overrun - clearing! @{}",
               placed == Placed::Overwritten ? 1 : 2, ref.device.ID);
        noteLoss(*ref.run, block.IsHosts ? LossPlace::UnfoldBlock : LossPlace::Import, lost);
    }

    // No lock of this device is held while stages of others are woken.
    static void tellTakers(RunRef &ref, std::unique_lock<std::mutex> &manis)
    {
        noteTaken(*ref.run);
        ref.run->NewDataWait = true;
        manis.unlock();
        wake(ref.run->Control);
        wakeImporters(ref.context, *ref.run);
        manis.lock();
    }

    // False: nobody will take what is left.
    bool waitForRoom(RunRef &ref, std::unique_lock<std::mutex> &manis, uint64_t events)
    {
        Run &run = *ref.run;
        auto goesOn = [this, &run, events] { // what is larger than the block goes piece by piece
            return roomOf(block) >= (events > block.Capacity ? 1 : events) || isAborted(run);
        };
        if (goesOn()) return true;
        if (run.Request.UnfoldCount)
            waitForHostsCount(run.BlockTaken, manis, goesOn);
        else if (block.IsHosts)
            run.BlockTaken.wait(manis, goesOn);
        else if (!hasReached(run, RunPhase::ConsumersEnd))
            run.BlockTaken.wait(manis, [&] { return goesOn() || hasReached(run, RunPhase::ConsumersEnd); });
        else if (!run.BlockTaken.wait_for(manis, Pace::importSearch, goesOn))
            return isStillImported(ref, manis);
        return true;
    }

    static bool isStillImported(RunRef &ref, std::unique_lock<std::mutex> &manis)
    {
        manis.unlock();
        const bool imported = isImported(ref);
        manis.lock();
        return imported;
    }

    UnfoldEvents &result;
    const EventBlock &block;
    uint64_t highWater = 0; // of Store
};

void UnfoldThread(RunRef run, UnfoldEvents &result)
{
    UnfoldMeasurement measurement(result);
    runMeasurement(run, measurement);
}

void beginUnfold(Run &run, UnfoldEvents &result)
{
    if (!result.Block.IsHosts) return;
    if (!result.Block.Count) result.Block.Count = &result.OwnCount;
    *result.Block.Count = 0;
    run.Offered = result.Block;
}

bool makeImportBlock(RunRef &run, UnfoldEvents &result)
{
    if (result.Block.IsHosts) return true;
    if (!allocate(result.Own, streamRecords())) return refuse(run.device, "No memory for the import block!");
    run.run->Offered = result.Block = blockOn(result.Own);
    return true;
}

} // namespace

const MeasurementSteps<UnfoldEvents> UnfoldEvents::Steps = {
    .Begin = beginUnfold,
    .Check = hasTimeScale,
    .Prepare = makeImportBlock,
    .ThreadName = "UnfoldThread",
    .Thread = UnfoldThread,
};

} // namespace Tessel
