// Sort: puts the events of all channels in the order of time. An event is held until one comes that is more
// than the window later: if none goes further back than the window, what goes out is in order. One that comes
// too late for its place goes on at once, and is counted.
#include "manipulators/sort.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/times.h"

#include <algorithm>
#include <limits>

namespace Tessel {

namespace {

constexpr StageWords sortWords = {
    .Created = "Sort created: {} @{}",
    .Started = "Sort started: {} @{}",
    .Stopped = "Sort stopped: {} @{}",
    .Exited = "Sort exited: {} @{}",
    .Overrun = "Device: Sort Buffer overrun - clearing! {} @{}",
};

// T3: as many syncs as the window needs.
uint64_t windowOf(const SortState &sort, const StreamFacts &facts)
{
    if (facts.Mode != MeasMode::T3) return sort.WindowPs;
    const auto period = static_cast<uint64_t>(std::max<int64_t>(facts.SyncPeriodPs, 1));
    const uint64_t syncs = sort.WindowPs / period + 1;
    return std::min(syncs, std::numeric_limits<uint64_t>::max() >> (dtimeBits + 1)) << dtimeBits;
}

bool isDue(const SortState &sort)
{
    if (sort.Held.empty()) return false;
    return sort.Latest - sort.Held.front().Time > sort.Window || sort.Held.size() >= sort.LargestHeld;
}

void releaseFront(SortState &sort, EventStore &out)
{
    const TimedChannel event = sort.Held.front();
    sort.Held.pop_front();
    sort.LastOut = std::max(sort.LastOut, event.Time);
    append(out, event.Time, event.Channel);
}

// Most events come in order, and the others go a few places back.
void hold(SortState &sort, const TimedChannel &event)
{
    auto at = sort.Held.end();
    while (at != sort.Held.begin() && at[-1].Time > event.Time) --at;
    sort.Held.insert(at, event);
    sort.Latest = std::max(sort.Latest, event.Time);
}

} // namespace

void startPass(SortState &sort, const StageRef &stage)
{
    clear(sort);
    sort.Window = windowOf(sort, stage.run->Facts);
    stage.run->IsSorted = true;
}

uint64_t work(SortState &sort, const StageRef &stage, Piece in, EventStore &out)
{
    for (uint64_t at = 0; at < in.Count; ++at) {
        while (isDue(sort) && roomOf(out) > 0) releaseFront(sort, out);
        if (roomOf(out) == 0) return at;
        const TimedChannel event{in.Times[at], in.Channels[at]};
        if (event.Time >= sort.LastOut) {
            hold(sort, event);
        } else {
            append(out, event.Time, event.Channel);
            ++stage.run->Unsorted;
        }
    }
    return in.Count;
}

bool finishPass(SortState &sort, const StageRef &, EventStore *out)
{
    while (out && !sort.Held.empty() && roomOf(*out) > 0) releaseFront(sort, *out);
    return !out || sort.Held.empty();
}

void clear(SortState &sort)
{
    sort.Held.clear();
    sort.Latest = sort.LastOut = 0;
}

bool addSort(const DeviceRef &target, uint64_t windowPs)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Sort;
    record->Params = {windowPs};

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "Sort {} @{}", windowPs, target->device.ID);
    return addStage(locks, target, record, "Sort_{}", [windowPs](StageRef stage) {
        SortState sort;
        sort.WindowPs = windowPs;
        runStage(stage, sortWords, std::move(sort));
    });
}

} // namespace Tessel
