// UnfoldThread: hands the decoded stream of a T2 or T3 run to the caller's block, or to the block from which an
// import stage of another device takes it. On a recorded file nothing is lost: the run stands still until the
// block has room.
#include "measurements/unfold.h"

#include "devices/lifecycle.h"
#include "devices/primitives.h"
#include "measurements/threads.h"

#include <algorithm>
#include <new>

namespace Tessel {

UnfoldBlock unfoldBlock(Run &run)
{
    if (run.Request.Kind == MeasKind::ImportSource) {
        EventStore &own = run.ImportBlock;
        return {own.Times.get(), own.Channels.get(), own.Capacity, own.Count};
    }
    const RunRequest &request = run.Request;
    return {request.UnfoldTimes, request.UnfoldChannels, request.UnfoldCapacity, run.unfoldCount()};
}

namespace {

void append(const UnfoldBlock &block, EventBatch batch, uint64_t first, uint64_t size)
{
    if (block.Times) std::copy_n(batch.Times + first, size, block.Times + block.Count);
    if (block.Channels) std::copy_n(batch.Channels + first, size, block.Channels + block.Count);
    block.Count += size;
}

} // namespace

Placed placeEvents(const UnfoldBlock &block, DeviceType device, EventBatch batch, uint64_t &done)
{
    const uint64_t left = batch.Count - done, room = block.room();
    const bool fits = left <= room;
    if (!block.takesEvents() || (!fits && device != DeviceType::File && device != DeviceType::Instrument)) {
        done = batch.Count;
        return Placed::All;
    }
    if (!fits && device == DeviceType::File) {
        const uint64_t size = left > block.Capacity ? room : 0;
        append(block, batch, done, size);
        done += size;
        return Placed::Some;
    }
    const uint64_t size = std::min(left, block.Capacity);
    if (!fits) block.Count = 0;
    append(block, batch, batch.Count - size, size);
    done = batch.Count;
    return fits ? Placed::All : size < left ? Placed::LastOnly : Placed::Overwritten;
}

void takeUnfoldBlock(MeasContext &context, uint64_t *times, uint8_t *channels, uint64_t *count)
{
    auto run = context.currentRun();
    if (!run || run->Request.Kind != MeasKind::Unfold) return;
    std::lock_guard lock(context.ManisLock);
    const UnfoldBlock block = unfoldBlock(*run);
    const uint64_t held = std::min(block.Count, block.Capacity);
    if (held == 0) return;
    if (times && block.Times) std::copy_n(block.Times, held, times);
    if (channels && block.Channels) std::copy_n(block.Channels, held, channels);
    if (count) *count = held;
    block.Count = 0;
    ++run->Taken;
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

// Whether a run somewhere, or one that is about to begin, has a stage that imports from this device. No lock
// may be held: the import stage takes those of both devices in its own order.
bool isImported(const std::string &id)
{
    auto importsIt = [&id](const auto &record) {
        return record->Type == ManisType::ImportStream && record->SourceId == id;
    };
    for (const DeviceRef &other : allDevices()) {
        if (other.context->Starts == 0 && !liveRun(*other.context)) continue;
        auto chain = chainOf(*other.context);
        if (std::any_of(chain.begin(), chain.end(), importsIt)) return true;
    }
    return false;
}

class UnfoldMeasurement
{
public:
    const char *name = "UnfoldThread";

    void prepare(RunRef &run)
    {
        const UnfoldBlock block = unfoldBlock(*run.run);
        highWater = block.takesEvents() ? block.Capacity : streamRecords();
        setHighWater(run.context(), highWater);
    }

    void tellStart(RunRef &run) const
    {
        if (LogLevel.Api)
            logInf(LogCategory::Progress, "UnfoldThread inputBuffSize {} @{}", highWater, run.device().ID);
    }

    void count(RunRef &run, EventBatch batch, uint64_t, std::unique_lock<std::mutex> &manis)
    {
        using namespace std::chrono_literals;
        for (uint64_t done = 0; !run.context().AbortRequested;) {
            const uint64_t before = done;
            const Placed placed = placeEvents(unfoldBlock(*run.run), run.device().DeviceType, batch, done);
            if (done > before) {
                run.context().NewDataWait = true;
                ++run.run->Taken;
            }
            if (placed != Placed::Some) return reportOverrun(run.device(), placed);
            manis.unlock();
            const bool nobodyTakes = isForNobody(run);
            std::this_thread::sleep_for(1ms);
            manis.lock();
            if (nobodyTakes) return;
        }
    }

    void finish(RunRef &run)
    {
        if (run.run->Request.Kind == MeasKind::Unfold && isImported(run.device().ID)) keepForImport(run);
    }

private:
    // The host's block is the host's again once the run is over, and whoever imports may not have come as far.
    static void keepForImport(RunRef &run)
    {
        std::lock_guard lock(run.context().ManisLock);
        const UnfoldBlock block = unfoldBlock(*run.run);
        EventStore &kept = run.run->ImportBlock;
        if (!block.Times || !block.Channels || block.Count == 0) return;
        if (!kept.allocate(block.Count)) throw std::bad_alloc();
        append({kept.Times.get(), kept.Channels.get(), kept.Capacity, kept.Count},
               {block.Times, block.Channels, block.Count}, 0, block.Count);
        block.Count = 0;
    }

    static void reportOverrun(const Device &device, Placed placed)
    {
        if (placed == Placed::Overwritten)
            logWrn(LogCategory::Device, "Device: Unfold1 buffer overrun - clearing! @{}", device.ID);
        if (placed == Placed::LastOnly)
            logWrn(LogCategory::Device, "Device: Unfold2 buffer overrun - clearing! @{}", device.ID);
    }

    // The run is at its end and the device that it was started for has gone.
    static bool isForNobody(RunRef &run)
    {
        return run.run->Request.Kind == MeasKind::ImportSource && run.context().ConsumersEnd &&
               !isImported(run.device().ID);
    }

    uint64_t highWater = 0; // of the final store
};

} // namespace

void UnfoldThread(RunRef run)
{
    UnfoldMeasurement measurement;
    runMeasurement(run, measurement);
}

} // namespace Tessel
