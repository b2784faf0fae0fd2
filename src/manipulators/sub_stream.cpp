// Sub-stream: lets through what happened in a time span, measured from the start of the run.
#include "manipulators/sub_stream.h"

#include "devices/raw_time.h"
#include "log/log.h"
#include "manipulators/run_copy.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"

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

// Events inside and outside lie in long runs, unless the stream is out of order.
template <class Time>
uint64_t copySpan(const SubStreamState &span, Time time, const Piece &in, EventStore &out)
{
    const uint64_t surelyFrom = time.surelyFrom(span.From);
    const uint64_t surelyBefore =
        span.To < std::numeric_limits<uint64_t>::max() ? time.surelyBefore(span.To + 1) : 0;
    const auto isInside = [&](uint64_t raw) {
        if (raw >= surelyFrom && raw < surelyBefore) return true;
        const uint64_t ps = time.ps(raw);
        return ps >= span.From && ps <= span.To;
    };
    uint64_t at = 0;
    while (at < in.Count) {
        while (at < in.Count && !isInside(in.Times[at])) ++at;
        const uint64_t end = at + std::min(in.Count - at, roomOf(out));
        const uint64_t from = at;
        while (at < end && isInside(in.Times[at])) ++at;
        appendRun(in, from, at, out);
        if (roomOf(out) == 0) break;
    }
    return at;
}

} // namespace

void startPass(SubStreamState &, const StageRef &) {}

uint64_t work(SubStreamState &span, const StageRef &stage, Piece in, EventStore &out)
{
    return withTime(*stage.device, [&](auto time) { return copySpan(span, time, in, out); });
}

void afterPiece(SubStreamState &, const StageRef &, Piece) {}
void clear(SubStreamState &) {}
bool finishPass(SubStreamState &, const StageRef &, EventStore *)
{
    return true;
}

void addSubStream(const DeviceRef &target, uint64_t from, uint64_t to)
{
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::SubStream;
    record->Params = {from, to};

    ChainLocks locks(*target.context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "SubStream {} {} @{}", from, to, target.device->ID);
    addStage(target, record, "Sub_{}", [from, to](StageRef stage) {
        runStage(stage, subStreamWords, SubStreamState{.From = from, .To = to});
    });
}

} // namespace Tessel
