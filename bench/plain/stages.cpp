#include "plain/stages.h"

#include <algorithm>
#include <cmath>

namespace Plain {

namespace {

bool contains(const std::vector<uint8_t> &list, uint8_t channel)
{
    return std::find(list.begin(), list.end(), channel) != list.end();
}

std::array<uint8_t, 256> mapOf(const std::vector<uint8_t> &members, uint8_t output)
{
    std::array<uint8_t, 256> map;
    map.fill(255);
    for (uint8_t channel : members) map[channel] = output;
    return map;
}

} // namespace

void ReferenceMerge::piece(const StreamForm &, EventView in, EventSink &out)
{
    const auto map = mapOf(members, output);
    for (uint64_t i = 0; i < in.count; ++i) {
        if (keep || map[in.channels[i]] != 255) out.append(in.channels[i], in.times[i]);
        if (map[in.channels[i]] != 255) out.append(output, in.times[i]);
    }
}

uint64_t ReferenceCoincidence::average(uint64_t min) const
{
    uint64_t sum = 0;
    for (uint8_t member : members) sum += lastTime[member] - min;
    return min + sum / members.size();
}

void ReferenceCoincidence::sliding(const StreamForm &form, uint64_t time, uint64_t min, EventSink &out)
{
    if (timeMode == 1) {
        out.append(output, time);
    } else if (timeMode == 0) {
        for (size_t i = 0; i < pendingTimes.size(); ++i) {
            if (form.ps(pendingTimes[i]) != min) continue;
            if (i + 1 == pendingTimes.size() || form.ps(pendingTimes[i + 1]) > min ||
                pendingChans[i + 1] > output) {
                const uint64_t at = pendingTimes[i];
                pendingTimes.insert(pendingTimes.begin() + static_cast<ptrdiff_t>(i) + 1, at);
                pendingChans.insert(pendingChans.begin() + static_cast<ptrdiff_t>(i) + 1, output);
                return;
            }
        }
    } else if (timeMode == 2) {
        const uint64_t avg = average(min);
        for (size_t i = 0; i < pendingTimes.size(); ++i) {
            const uint64_t at = form.ps(pendingTimes[i]);
            if (at > avg || (at == avg && pendingChans[i] > output)) {
                pendingTimes.insert(pendingTimes.begin() + static_cast<ptrdiff_t>(i), form.raw(avg));
                pendingChans.insert(pendingChans.begin() + static_cast<ptrdiff_t>(i), output);
                return;
            }
        }
    }
}

void ReferenceCoincidence::once(const StreamForm &form, uint64_t time, uint64_t min, EventSink &out)
{
    if (timeMode == 1) {
        out.append(output, time);
    } else if (timeMode == 0) {
        for (size_t i = 0; i < pendingTimes.size(); ++i) {
            if (keep && pendingTimes[i] != 0) out.append(pendingChans[i], pendingTimes[i]);
            if (form.ps(pendingTimes[i]) == min &&
                (i + 1 == pendingTimes.size() || form.ps(pendingTimes[i + 1]) > min ||
                 pendingChans[i + 1] > output))
                out.append(output, pendingTimes[i]);
        }
    } else if (timeMode == 2) {
        const uint64_t avg = average(min);
        bool written = false;
        for (size_t i = 0; i < pendingTimes.size(); ++i) {
            const uint64_t p = form.ps(pendingTimes[i]);
            const uint8_t channel = pendingChans[i];
            if ((keep && p < avg) || (p == avg && channel < output)) out.append(channel, pendingTimes[i]);
            if (!written && (p > avg || (p == avg && channel < output))) {
                out.append(output, form.raw(avg));
                written = true;
            }
            if ((keep && p > avg) || (p == avg && channel > output)) out.append(channel, pendingTimes[i]);
        }
    }
    lastTime.fill(0);
    pendingTimes.clear();
    pendingChans.clear();
}

void ReferenceCoincidence::piece(const StreamForm &form, EventView in, EventSink &out)
{
    lastTime.fill(~uint64_t{0});
    const auto map = mapOf(members, output);
    for (uint64_t n = 0; n < in.count; ++n) {
        const uint64_t t = in.times[n];
        const uint8_t ch = in.channels[n];
        if (timeMode == 1 && keep) out.append(ch, t);
        if (timeMode == 0 || timeMode == 2) {
            pendingTimes.push_back(t);
            pendingChans.push_back(ch);
        }
        const uint64_t old = form.ps(t) - window;
        size_t i = 0;
        if (map[ch] != 255) {
            if (form.t3 && members.front() == 0) lastTime[0] = (t >> 15) * form.period;
            lastTime[ch] = form.ps(t);
            uint64_t min = lastTime[members[0]], max = min;
            for (uint8_t member : members) {
                const uint64_t v = lastTime[member];
                if (v > max)
                    max = v;
                else
                    min = std::min(min, v);
            }
            if (max - min <= window && coincMode == 0) sliding(form, t, min, out);
            if (max - min <= window && coincMode == 1) once(form, t, min, out);
            if (timeMode != 0 && timeMode != 2) continue;
            for (; i < pendingTimes.size() && form.ps(pendingTimes[i]) < old; ++i)
                if (keep) out.append(pendingChans[i], pendingTimes[i]);
        } else {
            if (timeMode != 0 && timeMode != 2) continue;
            for (; i < pendingTimes.size() && form.ps(pendingTimes[0]) < old; ++i)
                if (keep || contains(members, pendingChans[i])) out.append(pendingChans[i], pendingTimes[i]);
        }
        if (i == 0) continue;
        pendingTimes.erase(pendingTimes.begin(), pendingTimes.begin() + static_cast<ptrdiff_t>(i));
        pendingChans.erase(pendingChans.begin(), pendingChans.begin() + static_cast<ptrdiff_t>(i));
    }
}

void ReferenceCoincidence::finish(EventSink &out)
{
    if (timeMode == 0 && keep)
        for (size_t i = 0; i < pendingTimes.size(); ++i) out.append(pendingChans[i], pendingTimes[i]);
}

void ReferenceDelay::piece(const StreamForm &form, EventView in, EventSink &out)
{
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t t = in.times[i], tp = form.ps(t);
        while (!times.empty() && !(tp < form.ps(times.front()))) {
            out.append(channels.front(), times.front());
            channels.pop_front();
            times.pop_front();
        }
        if (in.channels[i] != input) {
            out.append(in.channels[i], t);
            continue;
        }
        channels.push_back(keep ? output : input);
        if (keep) out.append(input, t);
        times.push_back(form.t3 ? form.raw(delay + tp) : t + delay);
    }
}

void ReferenceHerald::piece(const StreamForm &form, EventView in, EventSink &out)
{
    const bool bySync = form.t3 && herald == 0;
    if (bySync) seen = true;
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t t = in.times[i], tp = form.ps(t);
        const uint8_t ch = in.channels[i];
        if (bySync) {
            last = (t >> 15) * form.period;
        } else if (ch == herald) {
            previous = last;
            last = tp;
            seen = true;
        }
        const auto found = std::find(gated.begin(), gated.end(), ch);
        if (found == gated.end()) {
            out.append(ch, t);
        } else if (!keep) {
            if (inside(tp, last) != inverted) out.append(ch, t);
        } else {
            out.append(ch, t);
            if (inside(tp, ch == herald ? previous : last) != inverted)
                out.append(outputs[static_cast<size_t>(found - gated.begin())], t);
        }
    }
}

void ReferenceSubStream::piece(const StreamForm &form, EventView in, EventSink &out)
{
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t tp = form.ps(in.times[i]);
        if (!(tp < from) && !(tp > to)) out.append(in.channels[i], in.times[i]);
    }
}

void ReferenceCountRate::piece(const StreamForm &form, EventView in, EventSink &out)
{
    counters.resize(rows);
    rates.resize(rows);
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t tp = form.ps(in.times[i]);
        if (start == 0) {
            start = tp;
            firstSync = in.times[i] >> 15;
        }
        if (in.channels[i] < counters.size()) ++counters[in.channels[i]];
        out.append(in.channels[i], in.times[i]);
    }
    if (in.count == 0) return;
    const uint64_t last = in.times[in.count - 1], d = form.ps(last) - start;
    if (d < window) return;
    const float span = d == 0 ? 1.0f : float(d);
    for (size_t c = 0; c < rows; ++c)
        rates[c] = std::round(float(counters[c]) * (1.0f / span) * 999999995904.0f);
    if (form.t3) rates[0] = std::round(float((last >> 15) - firstSync) / span * 999999995904.0f);
    start = 0;
    counters.assign(rows, 0);
}

Events passPiece(ReferenceStage &stage, const StreamForm &form, const Events &in, bool last)
{
    const EventArrays arrays(in);
    // A coincidence can write two events for each that it holds, and holds what earlier pieces left.
    size_t pending = 0;
    if (const auto *coincidence = std::get_if<ReferenceCoincidence>(&stage))
        pending = coincidence->pendingTimes.size();
    if (const auto *delay = std::get_if<ReferenceDelay>(&stage)) pending = delay->times.size();
    std::vector<uint64_t> times(4 * (in.size() + pending) + 16);
    std::vector<uint8_t> channels(times.size());
    EventSink sink{times.data(), channels.data()};
    std::visit(
        [&](auto &one) {
            one.piece(form, {arrays.times.data(), arrays.channels.data(), in.size()}, sink);
            if constexpr (requires { one.finish(sink); })
                if (last) one.finish(sink);
        },
        stage);
    Events out;
    for (uint64_t i = 0; i < sink.count; ++i) out.push_back({times[i], channels[i]});
    return out;
}

} // namespace Plain
