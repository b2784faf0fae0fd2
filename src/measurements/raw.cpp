#include "measurements/raw.h"

#include "log/log.h"
#include "measurements/hosts_count.h"
#include "measurements/measurement.h"
#include "stream/words.h"
#include "threads/losses.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

namespace {

bool hasMemory(const RawWords &block)
{
    return block.Capacity > 0 && block.Words;
}

// The count is the host's to write, too.
uint64_t heldIn(const RawWords &block)
{
    return std::min(*block.Count, block.Capacity);
}

uint64_t roomOf(const RawWords &block)
{
    return block.Capacity - heldIn(block);
}

// `alsoLost` never comes into the block.
void dropBlock(Run &run, const RawWords &block, std::span<const uint32_t> alsoLost)
{
    const std::span<const uint32_t> held(block.Words, heldIn(block));
    const uint64_t overflows = overflowsIn(held, run.Facts.Mode) + overflowsIn(alsoLost, run.Facts.Mode);
    noteLoss(run, LossPlace::RawBlock, held.size() + alsoLost.size(), overflows > 0);
    *block.Count = 0;
}

} // namespace

uint64_t appendToRawBlock(RunRef &ref, std::span<const uint32_t> words)
{
    Run &run = *ref.run;
    const auto &block = resultAs<RawWords>(run);
    if (!hasMemory(block)) return words.size();
    std::lock_guard lock(run.RawLock);
    uint64_t room = roomOf(block);
    if (room < words.size() && !run.Facts.MayWait) {
        logWrn(LogCategory::Device, "Device: Raw Buffer overrun - clearing! @{}", ref.device.ID);
        const bool isTooLarge = words.size() > block.Capacity;
        dropBlock(run, block, isTooLarge ? words : std::span<const uint32_t>());
        room = block.Capacity;
        if (isTooLarge) return words.size();
    }
    bool inPieces = words.size() > block.Capacity;
    if (room < words.size() && !inPieces) return 0;
    uint64_t size = std::min<uint64_t>(room, words.size());
    std::copy_n(words.data(), size, block.Words + *block.Count);
    *block.Count += size;
    return size;
}

void clearRawBlock(Run &run)
{
    if (run.Request.Kind != MeasKind::Raw) return;
    const auto &block = resultAs<RawWords>(run);
    std::lock_guard lock(run.RawLock);
    if (!hasMemory(block)) return;
    if (heldIn(block) > 0) dropBlock(run, block, {});
}

void waitForRawBlock(Run &run, uint64_t words)
{
    const auto &block = resultAs<RawWords>(run);
    std::unique_lock lock(run.RawLock);
    auto isOver = [&] { return roomOf(block) >= std::min(words, block.Capacity) || isAborted(run); };
    if (run.Request.RawCount)
        waitForHostsCount(run.RawTaken, lock, isOver);
    else
        run.RawTaken.wait(lock, isOver);
}

void takeRawBlock(MeasContext &context, uint32_t *words, uint64_t *count)
{
    auto run = currentRun(context);
    if (!run || run->Request.Kind != MeasKind::Raw) return;
    const auto &block = resultAs<RawWords>(*run);
    if (!hasMemory(block)) return;
    std::unique_lock lock(run->RawLock);
    const uint64_t held = heldIn(block);
    if (held == 0) return;
    if (words) std::copy_n(block.Words, held, words);
    if (count) *count = held;
    *block.Count = 0;
    noteTaken(*run);
    lock.unlock();
    run->RawTaken.notify_all();
}

namespace {

void beginRaw(Run &, RawWords &result)
{
    if (!result.Count) result.Count = &result.OwnCount;
    *result.Count = 0;
}

} // namespace

const MeasurementSteps<RawWords> RawWords::Steps = {.Begin = beginRaw};

} // namespace Tessel
