#include "plain/correlation.h"

#include <utility>

namespace Plain {

PairLoop::PairLoop(uint64_t widthPs, uint64_t binCount, uint64_t capacity) : width(widthPs), bins(binCount)
{
    for (auto &row : rows) row.resize(bins);
    for (auto &channel : times) channel.resize(capacity);
}

void PairLoop::count(const uint64_t *eventTimes, const uint8_t *channels, uint64_t events)
{
    const uint64_t binWidth = width, span = width * bins;
    auto countEvent = [&](uint64_t time, uint64_t *own, uint64_t &ownCount, const uint64_t *stops,
                          uint64_t stopCount, uint64_t &lower, uint64_t *row) {
        while (lower < stopCount && time - stops[lower] >= span) ++lower;
        for (uint64_t i = lower; i < stopCount; ++i) ++row[(time - stops[i]) / binWidth];
        own[ownCount++] = time;
    };
    uint64_t *first = times[0].data(), *second = times[1].data(), *row0 = rows[0].data(),
             *row1 = rows[1].data();
    uint64_t firstCount = counted[0], secondCount = counted[1], firstLower = oldest[0], secondLower = oldest[1];
    for (uint64_t i = 0; i < events; ++i) {
        if (channels[i] == 1)
            countEvent(eventTimes[i], first, firstCount, second, secondCount, secondLower, row0);
        else if (channels[i] == 2)
            countEvent(eventTimes[i], second, secondCount, first, firstCount, firstLower, row1);
    }
    counted = {firstCount, secondCount};
    oldest = {firstLower, secondLower};
}

LagLoop::LagLoop(std::vector<uint64_t> ascendingLags, uint64_t capacity) : lags(std::move(ascendingLags))
{
    for (auto &row : rows) row.resize(lags.size());
    for (auto &row : cursors) row.resize(lags.size());
    for (auto &channel : times) channel.resize(capacity);
}

void LagLoop::count(const uint64_t *eventTimes, const uint8_t *channels, uint64_t events, bool counts)
{
    const uint64_t lagCount = lags.size(), *lag = lags.data();
    auto countRow = [&](uint64_t time, uint64_t row) {
        const uint64_t *stops = times[row % 2].data(), stopCount = counted[row % 2];
        uint64_t *cursor = cursors[row].data(), *sums = rows[row].data();
        for (uint64_t k = 0; k < lagCount; ++k) {
            uint64_t at = cursor[k];
            while (at < stopCount && time - stops[at] > lag[k]) ++at;
            cursor[k] = at;
            if (counts && k > 0) sums[k - 1] += cursor[k - 1] - at;
        }
    };
    for (uint64_t i = 0; i < events; ++i) {
        const uint64_t channel = channels[i] - 1u;
        if (channel > 1) continue;
        countRow(eventTimes[i], 2 * channel);
        countRow(eventTimes[i], 2 * channel + 1);
        times[channel][counted[channel]++] = eventTimes[i];
    }
}

} // namespace Plain
