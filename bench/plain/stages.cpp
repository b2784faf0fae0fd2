#include "plain/stages.h"

#include <algorithm>
#include <cmath>

namespace Plain {

namespace {

using ChannelFlags = std::array<uint8_t, 256>;

ChannelFlags flagsOf(const std::vector<uint8_t> &channels)
{
    ChannelFlags flags{};
    for (uint8_t channel : channels) flags[channel] = 1;
    return flags;
}

} // namespace

void ReferenceMerge::piece(const StreamForm &, EventView in, EventSink &out)
{
    const ChannelFlags isMember = flagsOf(members);
    const bool all = keep;
    const uint8_t merged = output;
    EventSink sink = out;
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t time = in.times[i];
        const uint8_t channel = in.channels[i];
        const bool member = isMember[channel];
        sink.append(channel, time); // written, and counted if it stays: nothing predicts which do
        sink.count -= !(all | member);
        sink.append(merged, time);
        sink.count -= !member;
    }
    out = sink;
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
        for (size_t i = head; i < pending.size(); ++i) {
            if (pending[i].ps != min) continue;
            if (i + 1 == pending.size() || pending[i + 1].ps > min || pending[i + 1].channel > output) {
                const Pending added{pending[i].time, min, output};
                pending.insert(pending.begin() + static_cast<ptrdiff_t>(i) + 1, added);
                return;
            }
        }
    } else if (timeMode == 2) {
        const uint64_t avg = average(min);
        for (size_t i = head; i < pending.size(); ++i) {
            if (pending[i].ps > avg || (pending[i].ps == avg && pending[i].channel > output)) {
                const uint64_t raw = form.raw(avg);
                pending.insert(pending.begin() + static_cast<ptrdiff_t>(i), {raw, form.ps(raw), output});
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
        for (size_t i = head; i < pending.size(); ++i) {
            if (keep && pending[i].time != 0) out.append(pending[i].channel, pending[i].time);
            if (pending[i].ps == min &&
                (i + 1 == pending.size() || pending[i + 1].ps > min || pending[i + 1].channel > output))
                out.append(output, pending[i].time);
        }
    } else if (timeMode == 2) {
        const uint64_t avg = average(min);
        bool written = false;
        for (size_t i = head; i < pending.size(); ++i) {
            const auto [raw, p, channel] = pending[i];
            if ((keep && p < avg) || (p == avg && channel < output)) out.append(channel, raw);
            if (!written && (p > avg || (p == avg && channel < output))) {
                out.append(output, form.raw(avg));
                written = true;
            }
            if ((keep && p > avg) || (p == avg && channel > output)) out.append(channel, raw);
        }
    }
    lastTime.fill(0);
    pending.clear();
    head = 0;
}

void ReferenceCoincidence::piece(const StreamForm &streamForm, EventView in, EventSink &out)
{
    const StreamForm form = streamForm;
    const ChannelFlags isMember = flagsOf(members);
    const bool holdsBack = timeMode == 0 || timeMode == 2, passes = timeMode == 1 && keep, all = keep;
    const bool bySync = form.t3 && !members.empty() && members.front() == 0;
    const uint64_t span = window;
    EventSink sink = out;
    lastTime.fill(~uint64_t{0});
    for (uint64_t n = 0; n < in.count; ++n) {
        const uint64_t t = in.times[n], ps = form.ps(t), old = ps - span;
        const uint8_t ch = in.channels[n];
        const bool member = isMember[ch];
        if (passes) sink.append(ch, t);
        if (holdsBack) pending.push_back({t, ps, ch});
        if (member) {
            if (bySync) lastTime[0] = (t >> 15) * form.period;
            lastTime[ch] = ps;
            uint64_t min = ~uint64_t{0}, max = 0;
            for (uint8_t one : members) {
                min = std::min(min, lastTime[one]);
                max = std::max(max, lastTime[one]);
            }
            if (max - min <= span) {
                out = sink;
                if (coincMode == 0) sliding(form, t, min, out);
                if (coincMode == 1) once(form, t, min, out);
                sink = out;
            }
        }
        if (!holdsBack) continue;
        if (member) {
            for (; head < pending.size() && pending[head].ps < old; ++head)
                if (all) sink.append(pending[head].channel, pending[head].time);
        } else if (head < pending.size() && pending[head].ps < old) {
            for (; head < pending.size(); ++head)
                if (all || isMember[pending[head].channel])
                    sink.append(pending[head].channel, pending[head].time);
        }
        if (head == pending.size()) {
            pending.clear();
            head = 0;
        } else if (head >= 4096) {
            pending.erase(pending.begin(), pending.begin() + static_cast<ptrdiff_t>(head));
            head = 0;
        }
    }
    out = sink;
}

void ReferenceCoincidence::finish(EventSink &out)
{
    if (timeMode == 0 && keep)
        for (size_t i = head; i < pending.size(); ++i) out.append(pending[i].channel, pending[i].time);
}

void ReferenceDelay::piece(const StreamForm &streamForm, EventView in, EventSink &out)
{
    const StreamForm form = streamForm;
    const uint8_t from = input, to = keep ? output : input;
    const uint64_t later = delay;
    const bool stays = keep;
    EventSink sink = out;
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t t = in.times[i], tp = form.ps(t);
        for (; !held.empty() && held.front().ps <= tp; held.pop_front()) sink.append(to, held.front().time);
        if (in.channels[i] != from) {
            sink.append(in.channels[i], t);
            continue;
        }
        if (stays) sink.append(from, t);
        const uint64_t raw = form.t3 ? form.raw(later + tp) : t + later;
        held.push_back({raw, form.ps(raw)});
    }
    out = sink;
}

void ReferenceHerald::piece(const StreamForm &streamForm, EventView in, EventSink &out)
{
    const StreamForm form = streamForm;
    const ChannelFlags isGated = flagsOf(gated);
    ChannelFlags outputOf{};
    for (size_t i = gated.size(); i > 0; --i) outputOf[gated[i - 1]] = outputs[i - 1];
    const bool bySync = form.t3 && herald == 0, stays = keep, outside = inverted;
    const uint8_t by = herald;
    const uint64_t open = delay, shut = delay + window;
    EventSink sink = out;
    seen |= bySync;
    uint64_t h = last, before = previous;
    bool wasSeen = seen;
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t t = in.times[i], tp = form.ps(t);
        const uint8_t ch = in.channels[i];
        if (bySync) {
            h = (t >> 15) * form.period;
        } else if (ch == by) {
            before = h;
            h = tp;
            wasSeen = true;
        }
        const uint64_t reference = stays && ch == by ? before : h;
        const bool inside = wasSeen && tp >= open + reference && tp <= shut + reference;
        if (stays || !isGated[ch] || inside != outside) sink.append(ch, t);
        if (stays && isGated[ch] && inside != outside) sink.append(outputOf[ch], t);
    }
    last = h;
    previous = before;
    seen = wasSeen;
    out = sink;
}

void ReferenceSubStream::piece(const StreamForm &streamForm, EventView in, EventSink &out)
{
    const StreamForm form = streamForm;
    const uint64_t first = from, last = to;
    EventSink sink = out;
    for (uint64_t i = 0; i < in.count; ++i) {
        const uint64_t tp = form.ps(in.times[i]);
        if (tp >= first && tp <= last) sink.append(in.channels[i], in.times[i]);
    }
    out = sink;
}

void ReferenceCountRate::piece(const StreamForm &form, EventView in, EventSink &out)
{
    counters.resize(rows);
    rates.resize(rows);
    std::array<uint64_t, 256> counts{};
    for (uint64_t i = 0; i < in.count; ++i) {
        if (start == 0) {
            start = form.ps(in.times[i]);
            firstSync = in.times[i] >> 15;
        }
        ++counts[in.channels[i]];
    }
    for (size_t c = 0; c < rows && c < counts.size(); ++c) counters[c] += counts[c];
    std::copy_n(in.times, in.count, out.times + out.count);
    std::copy_n(in.channels, in.count, out.channels + out.count);
    out.count += in.count;
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
        pending = coincidence->pending.size();
    if (const auto *delay = std::get_if<ReferenceDelay>(&stage)) pending = delay->held.size();
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
