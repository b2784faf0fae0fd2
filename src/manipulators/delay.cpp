// Delay: shifts the events of one channel later in time and holds them back until their time has come, so that
// the stream stays in order. An event comes out with the first one that isn't earlier. Events held back at the
// end of the run are lost.
#include "manipulators/delay.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/rounding.h"
#include "stream/run_copy.h"
#include "stream/time_span.h"
#include "stream/times.h"

#include <limits>

namespace Tessel {

namespace {

constexpr StageWords delayWords = {
    .Created = "DelayMThread created: {} @{}",
    .Started = "DelayMThread started: {} @{}",
    .Stopped = "DelayMThread stopped: {} @{}",
    .Exited = "DelayMThread exited: {} @{}",
    .Overrun = "Device: Delay Buffer overrun - clearing! {} @{}",
};

template <class Time>
class DelayWork
{
public:
    DelayWork(DelayState &delayState, const Manipulator &record, Time rawTime, const Piece &piece,
              EventStore &store)
        : state(delayState), time(rawTime), in(piece), out(store)
    {
        hasInput = !record.InChans.empty();
        if (hasInput) input = record.InChans.front();
        delayed = state.Keep && !record.OutChans.empty() ? record.OutChans.front() : input;
        largestQueue = std::max<uint64_t>(out.Capacity / 2, 1);
        nextInput = findInput(0);
    }

    uint64_t run()
    {
        uint64_t at = 0;
        while (at < in.Count && roomOf(out) > 0) {
            uint64_t end = endOfRun(at);
            appendRun(in, at, end, out);
            at = end;
            if (at == in.Count || !workEvent(at)) break;
            ++at;
        }
        return at;
    }

private:
    // End of the events that only pass: before the next one on the input, and the next that makes a held one
    // due.
    uint64_t endOfRun(uint64_t at)
    {
        if (nextInput < at) nextInput = findInput(at);
        const uint64_t end = std::min(nextInput, at + std::min(in.Count - at, roomOf(out)));
        if (state.Held.empty()) return end;
        const uint64_t due = state.Held.front().Ps;
        const uint64_t surelyBefore = time.surelyBefore(due);
        at += leadingWithin(in.Times + at, end - at, 0, surelyBefore);
        while (at < end && (in.Times[at] < surelyBefore || time.ps(in.Times[at]) < due)) ++at;
        return at;
    }

    uint64_t findInput(uint64_t at) const
    {
        const void *found = hasInput ? std::memchr(in.Channels + at, input, in.Count - at) : nullptr;
        return found ? static_cast<uint64_t>(static_cast<const uint8_t *>(found) - in.Channels) : in.Count;
    }

    // False: there is no room; the event comes again.
    bool workEvent(uint64_t at)
    {
        const uint64_t raw = in.Times[at];
        const uint64_t ps = time.ps(raw);
        while (!state.Held.empty() && ps >= state.Held.front().Ps)
            if (!release()) return false;
        const bool isInput = hasInput && in.Channels[at] == input;
        if (isInput && state.Held.size() >= largestQueue && !release()) return false;
        if (!isInput || state.Keep) {
            if (roomOf(out) == 0) return false;
            append(out, raw, in.Channels[at]);
        }
        if (isInput) hold(raw, ps);
        return true;
    }

    void hold(uint64_t raw, uint64_t ps)
    {
        const uint64_t later = Time::isT3 ? time.raw(ps + state.Delay) : raw + state.Delay;
        state.Held.push({later, time.ps(later), delayed});
    }

    bool release()
    {
        if (roomOf(out) == 0) return false;
        append(out, state.Held.front().Raw, state.Held.front().Channel);
        state.Held.drop(1);
        return true;
    }

    DelayState &state;
    const Time time;
    const Piece &in;
    EventStore &out;
    bool hasInput = false;
    uint8_t input = 0, delayed = 0;
    uint64_t nextInput = 0; // first event of the input that isn't done
    uint64_t largestQueue;  // where time stands still, the oldest event goes before its time
};

} // namespace

void startPass(DelayState &delay, const StageRef &)
{
    delay.Held.clear();
}

uint64_t work(DelayState &delay, const StageRef &stage, Piece in, EventStore &out)
{
    return withTime(stage.run->Facts, [&](auto time) {
        return DelayWork<decltype(time)>(delay, *stage.record, time, in, out).run();
    });
}

void clear(DelayState &delay)
{
    delay.Held.clear();
}

int32_t addDelay(const DeviceRef &target, uint8_t channel, double delayPs, bool keep)
{
    const auto delay = static_cast<uint64_t>(int64_t{nearest<int32_t>(delayPs)});
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::Delay;
    record->InChans = {channel};
    record->Params = {delay};
    record->KeepFlag = keep;

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMDelay {} {} @{}", channel, static_cast<int64_t>(delay),
               target->device.ID);
    auto thread = [delay, keep](StageRef stage) {
        runStage(stage, delayWords, DelayState{.Delay = delay, .Keep = keep, .Held = {}});
    };
    if (!addStage(locks, target, record, "Delay_{}", thread)) return -1;
    return record->OutChans.front();
}

} // namespace Tessel
