#include "stream/order.h"

#include "records/event_store.h"
#include "stream/times.h"

#include <algorithm>

namespace Tessel {

namespace {

bool isEarlier(uint64_t time, uint64_t before)
{
    return static_cast<int64_t>(time - before) < 0;
}

} // namespace

void noteOrder(StreamOrder &order, const uint64_t *times, const uint8_t *channels, uint64_t count, int shift)
{
    if (count == 0) return;
    if (hasStepBack(times, count, order.Last, shift) || isEarlier(times[0] >> shift, order.Latest)) {
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t time = times[i] >> shift;
            const bool isBack = channels[i] != ChannelCode::Overflow && isEarlier(time, order.Last);
            order.StepsBack += isBack;
            if (isBack) order.LargestStep = std::max(order.LargestStep, order.Latest - time);
            order.Latest = std::max(order.Latest, time);
            order.Last = time;
        }
        return;
    }
    order.Last = times[count - 1] >> shift;
    order.Latest = std::max(order.Latest, order.Last);
}

bool followsInOrder(StreamOrder &order, uint64_t first, uint64_t last)
{
    if (isEarlier(first, order.Last) || isEarlier(first, order.Latest)) return false;
    order.Last = last;
    order.Latest = std::max(order.Latest, last);
    return true;
}

uint64_t decodeInOrder(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                       uint64_t *times, uint8_t *channels, InvalidWords &invalid, StreamOrder &order)
{
    constexpr uint64_t pieceWords = 16384; // with their events they stay in the second-level cache
    const int shift = rules.Mode == MeasMode::T3 ? dtimeBits : 0;
    uint64_t events = 0;
    for (; !words.empty(); words = words.subspan(std::min(words.size(), pieceWords))) {
        const auto piece = words.first(std::min(words.size(), pieceWords));
        const uint64_t count = decode(piece, rules, overflowBase, times + events, channels + events, invalid);
        noteOrder(order, times + events, channels + events, count, shift);
        events += count;
    }
    return events;
}

} // namespace Tessel
