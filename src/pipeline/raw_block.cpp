#include "pipeline/raw_block.h"

#include "devices/primitives.h"
#include "log/log.h"

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
    std::lock_guard lock(ref.context().RawLock);
    uint64_t &count = run.rawCount();
    uint64_t room = capacity - std::min(count, capacity);
    if (room < words.size() && !isFile(ref.device())) {
        logWrn(LogCategory::Device, "Device: Raw Buffer overrun - clearing! @{}", ref.device().ID);
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

bool rawBlockHasRoom(MeasContext &context, Run &run, uint64_t words)
{
    if (!hasBlock(run)) return true;
    std::lock_guard lock(context.RawLock);
    uint64_t room = run.Request.RawCapacity - std::min(run.rawCount(), run.Request.RawCapacity);
    return room >= std::min(words, run.Request.RawCapacity);
}

void takeRawBlock(MeasContext &context, uint32_t *words, uint64_t *count)
{
    auto run = context.currentRun();
    if (!run || !hasBlock(*run)) return;
    std::lock_guard lock(context.RawLock);
    uint64_t held = std::min(run->rawCount(), run->Request.RawCapacity);
    if (held == 0) return;
    if (words) std::copy_n(run->Request.RawBlock, held, words);
    if (count) *count = held;
    run->rawCount() = 0;
    ++run->Taken;
}

} // namespace Tessel
