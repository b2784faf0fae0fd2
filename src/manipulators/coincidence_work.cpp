// The events of a Coincidence. A piece starts without any last time, so that no coincidence spans two pieces;
// what is pending stays.
//
// Most events of a stream have no other within the window before them. Such quiet events complete no set, and
// all that is pending is old to them: they pass in runs. Everything else goes event by event.
#include "manipulators/coincidence_events.h"
#include "stream/times.h"

#include <cassert>

namespace Tessel {

namespace {

template <class Time>
class CoincidenceWork
{
public:
    CoincidenceWork(CoincidenceState &coincidence, const Manipulator &record, Time rawTime, const Piece &piece,
                    EventStore &store)
        : state(coincidence), in(piece), out(store), events(coincidence, record, rawTime, store)
    {
    }

    uint64_t run()
    {
        uint64_t at = 0;
        if (!in.Resumed)
            events.startPiece();
        else if (!state.Ready.empty()) { // of the first event only the output is left
            if (!events.writeReady()) return 0;
            at = 1;
        }
        const bool hasQuiet = events.canBeQuiet();
        while (at < in.Count) {
            assert(events.holds() && state.Ready.empty());
            if (hasQuiet) at = passQuiet(at);
            if (at == in.Count) break;
            events.work(in.Times[at], in.Channels[at]);
            if (!state.Ready.empty()) break;
            ++at;
        }
        assert(events.holds());
        return at;
    }

private:
    // Passes the quiet events from `at` on, as far as there is room for them and all that is pending. Needs and
    // keeps C1 to C3.
    uint64_t passQuiet(uint64_t at)
    {
        if (!events.holdsBack) {
            const uint64_t room = state.Keep ? roomOf(out) : in.Count - at;
            const uint64_t end = endOfQuiet<false>(at, at + std::min(in.Count - at, room));
            if (state.Keep) appendRun(in, at, end, out);
            return end;
        }
        const uint64_t room = roomOf(out) - std::min(roomOf(out), state.Pending.size());
        const uint64_t end = endOfQuiet<true>(at, at + std::min(in.Count - at, room));
        if (end == at) return at;
        if (state.Keep)
            passPending(at, end);
        else
            dropPending(at, end);
        return end;
    }

    // Takes the quiet events into QuietAfter and the last times. With nothing held back only members matter. No
    // branch on that, since nothing predicts which event is a member.
    template <bool all>
    uint64_t endOfQuiet(uint64_t at, uint64_t end)
    {
        int64_t after = state.QuietAfter;
        for (; at < end; ++at) {
            const uint8_t channel = in.Channels[at];
            const uint64_t ps = events.time.ps(in.Times[at]);
            const int64_t mask = all ? -1 : -int64_t{events.isMember[channel]};
            if (static_cast<int64_t>(ps) <= (after & mask)) break;
            after = std::max(after, events.quietAfter(ps) & mask);
            state.LastTime[channel] = ps;
        }
        state.QuietAfter = after;
        return at;
    }

    // What becomes of a quiet event, all that is pending before it being old:
    //
    // Q1: a member makes the others go, one by one, and stays pending alone.
    // Q2: a non-member makes all go, itself too. Where nothing is pending it stays, alone.
    // Q3: what goes is written with Keep; without, only a member that a non-member makes go.

    // With Keep: all that is pending goes out, then the run, except for its last event if that stays.
    void passPending(uint64_t at, uint64_t end)
    {
        const bool lastStays = staysPending(at, end);
        for (const HeldEvent &event : state.Pending) append(out, event.Raw, event.Channel);
        state.Pending.clear();
        appendRun(in, at, end - lastStays, out);
        if (lastStays) hold(end - 1);
    }

    // From the last member on non-members go and stay by turns.
    bool staysPending(uint64_t at, uint64_t end) const
    {
        uint64_t others = 0;
        for (; end > at && !events.isMember[in.Channels[end - 1]]; --end) ++others;
        const bool isPending = end > at || !state.Pending.empty(); // before the others
        return isPending == (others % 2 == 0);
    }

    // Without Keep. After the first event at most the event before is pending; if that is a member, always.
    void dropPending(uint64_t at, uint64_t end)
    {
        bool wasMember = events.isMember[in.Channels[at]];
        bool isPending = wasMember || state.Pending.empty();
        if (!isPending)
            for (const HeldEvent &event : state.Pending)
                if (events.isMember[event.Channel]) append(out, event.Raw, event.Channel);
        state.Pending.clear();
        for (++at; at < end; ++at) { // the event before is written, and counted if it goes on
            const bool member = events.isMember[in.Channels[at]];
            out.Times[out.Count] = in.Times[at - 1];
            out.Channels[out.Count] = in.Channels[at - 1];
            out.Count += wasMember & !member;
            isPending = member | !isPending;
            wasMember = member;
        }
        if (isPending) hold(end - 1);
    }

    void hold(uint64_t at) { events.hold(in.Times[at], events.time.ps(in.Times[at]), in.Channels[at]); }

    CoincidenceState &state;
    const Piece &in;
    EventStore &out;
    CoincidenceEvents<Time> events;
};

} // namespace

void startPass(CoincidenceState &coincidence, const StageRef &)
{
    coincidence.Pending.clear();
    coincidence.Ready.clear();
}

uint64_t work(CoincidenceState &coincidence, const StageRef &stage, Piece in, EventStore &out)
{
    switch (coincidence.TimeMode) {
    case TimeMode::First:
    case TimeMode::Last:
    case TimeMode::Average:
        return withTime(stage.run->Facts, [&](auto time) {
            return CoincidenceWork<decltype(time)>(coincidence, *stage.record, time, in, out).run();
        });
    }
    return in.Count; // a coincidence that has no time: nothing goes on
}

void clear(CoincidenceState &coincidence)
{
    coincidence.Pending.clear();
}

// With TimeMode Average, events still pending are lost.
bool finishPass(CoincidenceState &coincidence, const StageRef &, EventStore *out)
{
    if (coincidence.TimeMode != TimeMode::First || !coincidence.Keep || !out) return true;
    EventQueue &pending = coincidence.Pending;
    const uint64_t count = std::min(pending.size(), roomOf(*out));
    for (uint64_t i = 0; i < count; ++i) append(*out, pending.begin()[i].Raw, pending.begin()[i].Channel);
    pending.drop(count);
    return pending.empty();
}

} // namespace Tessel
