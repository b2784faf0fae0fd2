// The plain loops of the histogram, and counting of T2 events. No lock and no thread.
//
// Which events count is as random as the light that they come from, so counting doesn't branch on it. It notes
// the element of each event of a block, moves on only past those that count, and then counts the noted
// elements.
#include "measurements/histogram_count.h"

#include "stream/division.h"
#include "stream/event_store.h"
#include "stream/times.h"

#include <algorithm>
#include <array>

namespace Tessel {

namespace {

constexpr uint64_t BlockEvents = 512; // their elements stay in the first-level cache
constexpr uint64_t NoChannel = 256;

// The largest distance from the reference that still has a bin. False if no distance has one.
bool lastDistance(const T2Counting &counting, uint64_t &last)
{
    const Wide span = Wide{counting.NumBins} * counting.BinWidth;
    last = static_cast<uint64_t>(std::min<Wide>(span - 1, UINT64_MAX));
    return span != 0;
}

// What is left of a block, and where no register of events can be counted at once. Needs a `last` below 2^63.
template <class Division>
void countT2With(const Division division, const uint64_t *times, const uint8_t *channels, uint64_t count,
                 uint32_t *histo, const T2Counting &counting, uint64_t last)
{
    const uint64_t rows = std::min<uint64_t>(counting.Rows, ChannelCode::Special); // as isCounted says
    const uint64_t refChan = counting.RefChan < rows ? counting.RefChan : NoChannel;
    const uint64_t numBins = counting.NumBins;
    uint64_t lastRefTime = counting.LastRefTime;
    std::array<uint64_t, BlockEvents> elements;
    for (; count != 0; times += BlockEvents, channels += BlockEvents) {
        const uint64_t events = std::min(BlockEvents, count);
        uint64_t found = 0;
        for (uint64_t i = 0; i < events; ++i) {
            const uint64_t time = times[i], channel = channels[i], distance = time - lastRefTime;
            elements[found] = numBins * channel + division(distance);
            found += (channel < rows) & (lastRefTime != 0) & (distance <= last);
            const uint64_t isRef = -static_cast<uint64_t>(channel == refChan); // all bits or none
            lastRefTime = (lastRefTime & ~isRef) | (time & isRef);
        }
        for (uint64_t i = 0; i < found; ++i) ++histo[elements[i]];
        count -= events;
    }
    counting.LastRefTime = lastRefTime;
}

} // namespace

void countT2(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
             const T2Counting &counting)
{
    uint64_t last = 0;
    if (!lastDistance(counting, last) || last >> 63 != 0)
        return countT2Plain(times, channels, count, histo, counting);
    const uint64_t done = countT2Blocks(times, channels, count, histo, counting, last);
    times += done, channels += done, count -= done;
    if (count == 0) return;
    withDivision(counting.BinWidth, [&](const auto &division) {
        countT2With(division, times, channels, count, histo, counting, last);
    });
}

void countT3Plain(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                  uint64_t numBins, uint64_t rows)
{
    for (uint64_t i = 0; i < count; ++i) {
        if (!isCounted(channels[i], rows)) continue;
        const uint64_t bin = times[i] & dtimeMask;
        if (bin < numBins) ++histo[numBins * channels[i] + bin];
    }
}

void countT2Plain(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                  const T2Counting &counting)
{
    for (uint64_t i = 0; i < count; ++i) {
        if (!isCounted(channels[i], counting.Rows)) continue;
        if (counting.LastRefTime != 0) {
            const uint64_t bin = (times[i] - counting.LastRefTime) / counting.BinWidth;
            if (bin < counting.NumBins) ++histo[counting.NumBins * channels[i] + bin];
        }
        if (channels[i] == counting.RefChan) counting.LastRefTime = times[i];
    }
}

} // namespace Tessel
