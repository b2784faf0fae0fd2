// A coincidence as it is defined, event by event: each is handed on or held back, may complete a set, and makes
// older ones go.
#pragma once

#include "manipulators/coincidence.h"
#include "stream/run_copy.h"

#include <algorithm>
#include <limits>

namespace Tessel {

template <class Time>
class CoincidenceEvents
{
public:
    CoincidenceEvents(CoincidenceState &coincidence, const Manipulator &record, Time rawTime, EventStore &store)
        : time(rawTime),
          out(store),
          holdsBack(coincidence.TimeMode != TimeMode::Last),
          state(coincidence),
          members(record.InChans)
    {
        output = record.OutChans.empty() ? 0 : record.OutChans.front();
        if (record.OutChans.empty()) return;
        for (uint8_t channel : members)
            if (!std::exchange(isMember[channel], 1)) distinct[distinctCount++] = channel;
        refreshesSync = Time::isT3 && !members.empty() && members.front() == ChannelCode::Sync;
    }

    // Makes C1 to C3 true for the piece.
    void startPiece()
    {
        state.LastTime.fill(notSeen);
        state.Ready.clear();
        uint64_t latest = 0;
        for (const HeldEvent &event : state.Pending) latest = std::max(latest, event.Ps);
        state.QuietAfter = quietAfter(latest);
    }

    // Needs C1 to C3. Keeps C1 and C2; Ready may be left with a part of what the event makes.
    void work(uint64_t raw, uint8_t channel)
    {
        const uint64_t ps = time.ps(raw);
        const bool member = isMember[channel];
        if (holdsBack)
            hold(raw, ps, channel);
        else if (state.Keep)
            emit(raw, channel);

        if (holdsBack || member) state.QuietAfter = std::max(state.QuietAfter, quietAfter(ps));
        if (member) {
            if (refreshesSync) state.LastTime[ChannelCode::Sync] = time.syncPs(raw);
            state.LastTime[channel] = ps;
            lookForSet(raw);
        }
        if (!holdsBack) return;
        const uint64_t before = ps - state.Window; // wraps: then everything counts as old
        if (member)
            ageOneByOne(before);
        else
            ageAll(before);
    }

    // Events within a window are few. If they aren't, the oldest goes before its time.
    void hold(uint64_t raw, uint64_t ps, uint8_t channel)
    {
        state.Pending.push({raw, ps, channel});
        if (state.Pending.size() <= state.MostPending) return;
        if (state.Keep) emit(state.Pending.front().Raw, state.Pending.front().Channel);
        state.Pending.drop(1);
    }

    // False: some are left.
    bool writeReady()
    {
        const uint64_t count = std::min<uint64_t>(state.Ready.size(), roomOf(out));
        for (uint64_t i = 0; i < count; ++i) append(out, state.Ready[i].first, state.Ready[i].second);
        state.Ready.erase(state.Ready.begin(), state.Ready.begin() + static_cast<std::ptrdiff_t>(count));
        return state.Ready.empty();
    }

    // The last time that isn't quiet after an event at `ps`.
    int64_t quietAfter(uint64_t ps) const
    {
        constexpr uint64_t limit = std::numeric_limits<int64_t>::max();
        const uint64_t window = std::min(state.Window, limit);
        return static_cast<int64_t>(std::min(ps, limit - window) + window);
    }

    // C1 and C2. For assertions.
    bool holds() const
    {
        bool all = holdsBack || state.Pending.empty();
        for (const HeldEvent &event : state.Pending) all &= quietAfter(event.Ps) <= state.QuietAfter;
        for (size_t i = 0; i < distinctCount; ++i) {
            const uint64_t last = state.LastTime[distinct[i]];
            all &= last == notSeen || quietAfter(last) <= state.QuietAfter;
        }
        return all;
    }

    // A set of one is complete with each event; so is a set of one and the T3 sync, which each event brings.
    bool canBeQuiet() const
    {
        const bool makesNone = state.CoincMode != CoincMode::Sliding && state.CoincMode != CoincMode::Once;
        return distinctCount == 0 || makesNone || distinctCount - refreshesSync >= 2;
    }

    const Time time;
    EventStore &out;
    const bool holdsBack; // events are held back before they go on
    std::array<uint8_t, 256> isMember{};
    std::array<uint8_t, 256> distinct{}; // the members, each once
    size_t distinctCount = 0;

private:
    static constexpr uint64_t notSeen = std::numeric_limits<uint64_t>::max();

    // A member that wasn't seen is later than any window after the others.
    void lookForSet(uint64_t raw)
    {
        uint64_t earliest = notSeen, latest = 0;
        for (size_t i = 0; i < distinctCount; ++i) {
            const uint64_t last = state.LastTime[distinct[i]];
            earliest = std::min(earliest, last);
            latest = std::max(latest, last);
        }
        if (latest - earliest > state.Window) return;
        switch (state.CoincMode) {
        case CoincMode::Sliding: slide(raw, earliest); break;
        case CoincMode::Once:
            consume(raw, earliest);
            state.LastTime.fill(0); // not `notSeen`: a member that wasn't seen counts as time 0 from here on
            state.Pending.clear();
            break;
        }
    }

    void slide(uint64_t raw, uint64_t earliest)
    {
        switch (state.TimeMode) {
        case TimeMode::First: insertBehind(earliest); break;
        case TimeMode::Last: emit(raw, output); break;
        case TimeMode::Average: insertBefore(average(earliest)); break;
        }
    }

    // Of every entry of a list, should it name a channel twice.
    uint64_t average(uint64_t earliest) const
    {
        uint64_t sum = 0;
        for (uint8_t channel : members) sum += state.LastTime[channel] - earliest;
        return earliest + sum / members.size();
    }

    // After the events of this time whose channel isn't above it; with the raw time of the one before it.
    bool standsBehind(const HeldEvent *event, uint64_t ps)
    {
        if (event->Ps != ps) return false;
        const HeldEvent *next = event + 1;
        return next == state.Pending.end() || next->Ps > ps || next->Channel > output;
    }

    void insertBehind(uint64_t ps)
    {
        for (HeldEvent *event = state.Pending.from(ps); event != state.Pending.end(); ++event)
            if (standsBehind(event, ps)) {
                const HeldEvent coincidence{event->Raw, event->Ps, output};
                state.Pending.insert(event + 1, coincidence);
                return;
            }
    }

    // Before the first later event, or the first of this time whose channel is above it. If there is none,
    // there is no coincidence.
    void insertBefore(uint64_t ps)
    {
        for (HeldEvent *event = state.Pending.from(ps); event != state.Pending.end(); ++event)
            if (event->Ps > ps || (event->Ps == ps && event->Channel > output)) {
                const uint64_t raw = time.raw(ps);
                const uint64_t stored = time.ps(raw); // in T3 another, where the resolution isn't whole
                state.Pending.insert(event, {raw, stored, output});
                state.QuietAfter = std::max(state.QuietAfter, quietAfter(stored));
                return;
            }
    }

    void consume(uint64_t raw, uint64_t earliest)
    {
        switch (state.TimeMode) {
        case TimeMode::First: writeFirst(earliest); break;
        case TimeMode::Last: emit(raw, output); break;
        case TimeMode::Average: writeAverage(average(earliest)); break;
        }
    }

    void writeFirst(uint64_t ps)
    {
        for (const HeldEvent &event : state.Pending) {
            if (state.Keep && event.Raw != 0) emit(event.Raw, event.Channel);
            if (standsBehind(&event, ps)) emit(event.Raw, output);
        }
    }

    // An event of the very time of the coincidence goes on without keep too; one on its channel never does.
    void writeAverage(uint64_t ps)
    {
        bool written = false;
        for (const HeldEvent &event : state.Pending) {
            const bool isBelow = event.Ps == ps && event.Channel < output;
            const bool isAbove = event.Ps == ps && event.Channel > output;
            if ((state.Keep && event.Ps < ps) || isBelow) emit(event.Raw, event.Channel);
            if (!written && (event.Ps > ps || isBelow)) {
                emit(time.raw(ps), output);
                written = true;
            }
            if ((state.Keep && event.Ps > ps) || isAbove) emit(event.Raw, event.Channel);
        }
    }

    void ageOneByOne(uint64_t before)
    {
        uint64_t old = 0;
        for (const HeldEvent &event : state.Pending) {
            if (event.Ps >= before) break;
            if (state.Keep) emit(event.Raw, event.Channel);
            ++old;
        }
        state.Pending.drop(old);
    }

    // On an event of another channel all go with the first, members without keep too.
    void ageAll(uint64_t before)
    {
        if (state.Pending.empty() || state.Pending.front().Ps >= before) return;
        for (const HeldEvent &event : state.Pending)
            if (state.Keep || isMember[event.Channel]) emit(event.Raw, event.Channel);
        state.Pending.clear();
    }

    void emit(uint64_t raw, uint8_t channel)
    {
        if (roomOf(out) > 0 && state.Ready.empty())
            append(out, raw, channel);
        else
            state.Ready.emplace_back(raw, channel);
    }

    CoincidenceState &state;
    const std::vector<uint8_t> &members; // as they are listed
    uint8_t output = 0;
    bool refreshesSync = false; // each member event sets the time of the member sync
};

} // namespace Tessel
