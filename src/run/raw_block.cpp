#include "run/raw_block.h"

#include "log/log.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

namespace {

bool hasBlock(const Run &run)
{
    return run.Request.RawCapacity > 0 && run.Request.RawBlock;
}

} // namespace

uint64_t appendToRawBlock(RunRef &ref, std::span<const uint32_t> words)
{
    Run &run = *ref.run;
    if (!hasBlock(run)) return words.size();
    const uint64_t capacity = run.Request.RawCapacity;
    std::lock_guard lock(run.RawLock);
    uint64_t &count = run.RawCount;
    uint64_t room = capacity - std::min(count, capacity);
    if (room < words.size() && !run.Facts.MayWait) {
        logWrn(LogCategory::Device, "Device: Raw Buffer overrun - clearing! @{}", ref.device.ID);
        count = 0;
        room = capacity;
        if (room < words.size()) return words.size();
    }
    bool inPieces = words.size() > capacity;
    if (room < words.size() && !inPieces) return 0;
    uint64_t size = std::min<uint64_t>(room, words.size());
    std::copy_n(words.data(), size, run.Request.RawBlock + count);
    count += size;
    return size;
}

void waitForRawBlock(Run &run, uint64_t words)
{
    const uint64_t capacity = run.Request.RawCapacity;
    std::unique_lock lock(run.RawLock);
    auto isOver = [&] {
        const uint64_t room = capacity - std::min(run.RawCount, capacity);
        return room >= std::min(words, capacity) || isAborted(run);
    };
    // A host that gave the count sets it back without a call.
    const bool isHostsCount = run.Request.RawCount != nullptr;
    while (!isOver())
        if (isHostsCount)
            run.RawTaken.wait_for(lock, Pace::hostsCount, isOver);
        else
            run.RawTaken.wait(lock, isOver);
}

void takeRawBlock(MeasContext &context, uint32_t *words, uint64_t *count)
{
    auto run = currentRun(context);
    if (!run || !hasBlock(*run)) return;
    std::unique_lock lock(run->RawLock);
    uint64_t held = std::min(run->RawCount, run->Request.RawCapacity);
    if (held == 0) return;
    if (words) std::copy_n(run->Request.RawBlock, held, words);
    if (count) *count = held;
    run->RawCount = 0;
    noteTaken(*run);
    lock.unlock();
    run->RawTaken.notify_all();
}

} // namespace Tessel
