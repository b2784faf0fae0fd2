// Sub-stream: lets through what happened in a time span, measured from the start of the run.
#include "manipulators/sub_stream.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/run_copy.h"
#include "stream/time_span.h"
#include "stream/times.h"

#include <limits>

namespace Tessel {

namespace {

constexpr StageWords subStreamWords = {
    .Created = "SubStream created: {} @{}",
    .Started = "SubStream started: {} @{}",
    .Stopped = "SubStream stopped: {} @{}",
    .Exited = "SubStream exited: {} @{}",
    .Overrun = "Device: SubStream Buffer overrun - clearing! {} @{}",
};

// Raw times that need no look at their picoseconds.
struct SureSpans
{
    uint64_t Before;           // surely too early
    uint64_t Inside, InsideTo; // surely inside
    uint64_t After, AfterTo;   // surely too late
};

template <class Time>
SureSpans sureSpans(const SubStreamState &span, Time time)
{
    constexpr uint64_t latest = std::numeric_limits<uint64_t>::max();
    const uint64_t last = time.surelyBefore(latest); // a later one may wrap
    const bool isOpen = span.To == latest;
    return {.Before = time.surelyBefore(span.From),
            .Inside = time.surelyFrom(span.From),
            .InsideTo = isOpen ? last : time.surelyBefore(span.To + 1),
            .After = isOpen ? last : time.surelyFrom(span.To + 1),
            .AfterTo = last};
}

// Events inside and outside lie in long runs, unless the stream is out of order.
template <class Time>
uint64_t copySpan(const SubStreamState &span, Time time, const Piece &in, EventStore &out)
{
    const SureSpans sure = sureSpans(span, time);
    for (uint64_t at = 0;;) {
        at += leadingWithin(in.Times + at, in.Count - at, 0, sure.Before);
        at += leadingWithin(in.Times + at, in.Count - at, sure.After, sure.AfterTo);
        const uint64_t run =
            leadingWithin(in.Times + at, std::min(in.Count - at, roomOf(out)), sure.Inside, sure.InsideTo);
        appendRun(in, at, at + run, out);
        at += run;
        if (at == in.Count || roomOf(out) == 0) return at;
        const uint64_t ps = time.ps(in.Times[at]);
        if (ps >= span.From && ps <= span.To) appendRun(in, at, at + 1, out);
        ++at;
    }
}

} // namespace

uint64_t work(SubStreamState &span, const StageRef &stage, Piece in, EventStore &out)
{
    return withTime(stage.run->Facts, [&](auto time) { return copySpan(span, time, in, out); });
}

void addSubStream(const DeviceRef &target, uint64_t from, uint64_t to)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::SubStream;
    record->Params = {from, to};

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "SubStream {} {} @{}", from, to, target->device.ID);
    addStage(locks, target, record, "Sub_{}", [from, to](StageRef stage) {
        runStage(stage, subStreamWords, SubStreamState{.From = from, .To = to});
    });
}

} // namespace Tessel
