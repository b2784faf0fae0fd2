// The loops of the two-dimensional histogram.
//
// Which event is a reference, an X or a Y is as random as light, so the search of a block doesn't branch on it:
// it follows the times with selects and notes a pair behind each event, moving on only past those that count.
// The noted pairs are then binned one after the other, without waiting for each other.
#include "measurements/histogram_2d_count.h"

#include "pipeline/event_store.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tessel {

namespace {

constexpr uint64_t unset = PairSearch::unset;
constexpr uint64_t blockEvents = 512; // their pairs stay in the first-level cache

bool isCounted(uint8_t channel, uint64_t rows)
{
    return (channel & ChannelCode::Special) == 0 && channel < rows;
}

uint64_t dtimePs(uint64_t raw, const PairRules &rules)
{
    return (raw & RawTime::dtimeMask) * rules.Resolution;
}

} // namespace

std::optional<Pair> nextPair(PairSearch &search, const PairRules &rules, T2Time, uint64_t raw, uint8_t channel)
{
    const Histo2dParams &params = rules.Params;
    std::optional<Pair> pair;
    if (search.LastRefTime != 0 && search.X != unset && search.Y != unset) {
        const uint64_t origin = params.H2dTotMode ? search.X : search.LastRefTime;
        pair = {search.X - search.LastRefTime, search.Y - origin, search.LastRefTime - search.PreviousRef};
        search.PreviousRef = search.LastRefTime;
    }
    if (channel == params.H2dStartChan) {
        search.LastRefTime = raw;
        search.X = search.Y = unset;
    }
    if (channel == params.H2dChanX) search.X = raw - params.H2dOffsetX;
    if (channel == params.H2dChanY) search.Y = raw - params.H2dOffsetY;
    return pair;
}

std::optional<Pair> nextPair(PairSearch &search, const PairRules &rules, const T3Time &time, uint64_t raw,
                             uint8_t channel)
{
    const Histo2dParams &params = rules.Params;
    std::optional<Pair> pair;
    if (search.XSync == search.YSync && search.X != unset && search.Y != unset) {
        pair = {search.X, search.Y, search.LastRefTime - search.PreviousRef};
        search.PreviousRef = search.LastRefTime;
        search.X = search.Y = unset;
    }
    const uint64_t sync = raw >> RawTime::dtimeBits;
    if (channel == params.H2dChanX) {
        search.X = dtimePs(raw, rules) - params.H2dOffsetX;
        search.XSync = sync;
        search.LastRefTime = time.syncPs(raw);
    }
    if (channel == params.H2dChanY) {
        search.Y = dtimePs(raw, rules) - params.H2dOffsetY - (params.H2dTotMode ? search.X : 0);
        search.YSync = sync;
        search.LastRefTime = time.syncPs(raw);
    }
    return pair;
}

bool isRecovering(const Histo2dParams &params, const Pair &pair)
{
    return pair.Gap < params.H2dRecoveryMin || pair.Gap > params.H2dRecoveryMax;
}

std::optional<uint64_t> elementOf(const Histo2dParams &params, const Pair &pair, bool recovering)
{
    const double slope = recovering ? params.H2dSlope + params.H2dRecoverySlope : params.H2dSlope;
    const uint64_t x = pair.X + (recovering ? params.H2dRecoveryOffsetX : 0);
    const uint64_t y = pair.Y + (recovering ? params.H2dRecoveryOffsetY : 0);
    const double sheared = std::fma(slope, static_cast<double>(pair.Y), static_cast<double>(x));
    // Cut towards zero, so that bin 0 begins behind -1.
    const double column = sheared / static_cast<double>(params.H2dBinWidthX);
    if (!(column > -1.0 && column < static_cast<double>(params.H2dNumBinsX))) return std::nullopt;
    const uint64_t row = y / params.H2dBinWidthY;
    if (row >= params.H2dNumBinsY) return std::nullopt;
    return params.H2dNumBinsX * row + static_cast<uint64_t>(std::max(column, 0.0));
}

namespace {

template <class Time>
void countPlain(PairSearch &search, const PairRules &rules, const Time &time, const uint64_t *times,
                const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    for (uint64_t i = 0; i < count; ++i) {
        if (!isCounted(channels[i], rows)) continue;
        const auto pair = nextPair(search, rules, time, times[i], channels[i]);
        if (!pair) continue;
        if (const auto element = elementOf(rules.Params, *pair, isRecovering(rules.Params, *pair)))
            ++histo[*element];
    }
}

struct PairBlock
{
    std::array<Pair, blockEvents> Pairs;
    uint64_t Count = 0;
};

// The pairs that a block of events counts.
void searchBlock(PairSearch &search, const PairRules &rules, T2Time, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, uint64_t rows, PairBlock &found)
{
    const Histo2dParams &params = rules.Params;
    const uint64_t startChan = params.H2dStartChan, chanX = params.H2dChanX, chanY = params.H2dChanY;
    const bool tot = params.H2dTotMode != 0;
    PairSearch now = search;
    uint64_t pairs = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t time = times[i], channel = channels[i];
        const bool hasRow = channel < rows;
        const bool ready = hasRow & (now.LastRefTime != 0) & (now.X != unset) & (now.Y != unset);
        found.Pairs[pairs] = {now.X - now.LastRefTime, now.Y - (tot ? now.X : now.LastRefTime),
                              now.LastRefTime - now.PreviousRef};
        pairs += ready;
        now.PreviousRef = ready ? now.LastRefTime : now.PreviousRef;
        const bool isStart = hasRow & (channel == startChan);
        now.LastRefTime = isStart ? time : now.LastRefTime;
        now.X = isStart ? unset : now.X;
        now.Y = isStart ? unset : now.Y;
        now.X = hasRow & (channel == chanX) ? time - params.H2dOffsetX : now.X;
        now.Y = hasRow & (channel == chanY) ? time - params.H2dOffsetY : now.Y;
    }
    search = now;
    found.Count = pairs;
}

void searchBlock(PairSearch &search, const PairRules &rules, const T3Time &time, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, uint64_t rows, PairBlock &found)
{
    const Histo2dParams &params = rules.Params;
    const uint64_t chanX = params.H2dChanX, chanY = params.H2dChanY;
    const uint64_t totMask = params.H2dTotMode ? ~uint64_t{0} : 0;
    PairSearch now = search;
    uint64_t pairs = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t raw = times[i], channel = channels[i];
        const bool hasRow = channel < rows;
        const bool ready = hasRow & (now.XSync == now.YSync) & (now.X != unset) & (now.Y != unset);
        found.Pairs[pairs] = {now.X, now.Y, now.LastRefTime - now.PreviousRef};
        pairs += ready;
        now.PreviousRef = ready ? now.LastRefTime : now.PreviousRef;
        now.X = ready ? unset : now.X;
        now.Y = ready ? unset : now.Y;
        const uint64_t delay = dtimePs(raw, rules), sync = raw >> RawTime::dtimeBits;
        const bool isX = hasRow & (channel == chanX), isY = hasRow & (channel == chanY);
        now.X = isX ? delay - params.H2dOffsetX : now.X;
        now.XSync = isX ? sync : now.XSync;
        now.Y = isY ? delay - params.H2dOffsetY - (now.X & totMask) : now.Y;
        now.YSync = isY ? sync : now.YSync;
        now.LastRefTime = isX | isY ? time.syncPs(raw) : now.LastRefTime;
    }
    search = now;
    found.Count = pairs;
}

// Bins pairs as elementOf does. Below 2^53 an integer quotient is that of the doubles, cut: were it rounded up
// to the next whole number, the two would lie closer together than 1 / width, which is more than half a step
// there.
class PairBinning
{
public:
    explicit PairBinning(const Histo2dParams &given)
        : params(given),
          widthX(static_cast<double>(given.H2dBinWidthX)),
          widthY(static_cast<double>(given.H2dBinWidthY)),
          numBinsX(static_cast<double>(given.H2dNumBinsX)),
          endY(given.H2dNumBinsY > exact / given.H2dBinWidthY ? 0 : given.H2dNumBinsY * given.H2dBinWidthY),
          isSheared(given.H2dSlope != 0 || given.H2dRecoverySlope != 0)
    {
    }

    void count(const PairBlock &block, uint32_t *histo) const
    {
        if (endY == 0)
            countPlainly(block, histo);
        else if (isSheared)
            countAll<true>(block, histo);
        else
            countAll<false>(block, histo);
    }

private:
    static constexpr uint64_t exact = uint64_t{1} << 53;

    void countPlainly(const PairBlock &block, uint32_t *histo) const
    {
        for (uint64_t i = 0; i < block.Count; ++i)
            if (const auto element = elementOf(params, block.Pairs[i], isRecovering(params, block.Pairs[i])))
                ++histo[*element];
    }

    template <bool Sheared>
    void countAll(const PairBlock &block, uint32_t *histo) const
    {
        std::array<uint64_t, blockEvents> elements;
        uint64_t counted = 0;
        for (uint64_t i = 0; i < block.Count; ++i) {
            const Pair &pair = block.Pairs[i];
            const bool recovering = (pair.Gap < params.H2dRecoveryMin) | (pair.Gap > params.H2dRecoveryMax);
            const uint64_t x = pair.X + (recovering ? params.H2dRecoveryOffsetX : 0);
            const uint64_t y = pair.Y + (recovering ? params.H2dRecoveryOffsetY : 0);
            double shearedX = static_cast<double>(x);
            if constexpr (Sheared)
                shearedX = std::fma(recovering ? params.H2dSlope + params.H2dRecoverySlope : params.H2dSlope,
                                    static_cast<double>(pair.Y), shearedX);
            const double column = shearedX / widthX;
            const bool isInside = (y < endY) & (column > -1.0) & (column < numBinsX);
            // An outside one is binned as zero and overwritten by the next.
            const auto row = static_cast<uint64_t>(
                static_cast<int64_t>(static_cast<double>(static_cast<int64_t>(isInside ? y : 0)) / widthY));
            elements[counted] =
                params.H2dNumBinsX * row + static_cast<uint64_t>(static_cast<int64_t>(isInside ? column : 0.0));
            counted += isInside;
        }
        for (uint64_t i = 0; i < counted; ++i) ++histo[elements[i]];
    }

    const Histo2dParams &params;
    const double widthX, widthY, numBinsX;
    const uint64_t endY; // the first y without a bin; 0: too large for exact doubles, or there is no bin
    const bool isSheared;
};

template <class Time>
void countBlocks(PairSearch &search, const PairRules &rules, const Time &time, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    const PairBinning binning(rules.Params);
    const uint64_t countedRows = std::min<uint64_t>(rows, ChannelCode::Special);
    PairBlock found;
    for (uint64_t at = 0; at < count; at += blockEvents) {
        searchBlock(search, rules, time, times + at, channels + at, std::min(blockEvents, count - at),
                    countedRows, found);
        binning.count(found, histo);
    }
}

} // namespace

void histogram2dCount(PairSearch &search, const PairRules &rules, T2Time time, const uint64_t *times,
                      const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    countBlocks(search, rules, time, times, channels, count, rows, histo);
}
void histogram2dCount(PairSearch &search, const PairRules &rules, const T3Time &time, const uint64_t *times,
                      const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    countBlocks(search, rules, time, times, channels, count, rows, histo);
}
void histogram2dCountPlain(PairSearch &search, const PairRules &rules, T2Time time, const uint64_t *times,
                           const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    countPlain(search, rules, time, times, channels, count, rows, histo);
}
void histogram2dCountPlain(PairSearch &search, const PairRules &rules, const T3Time &time,
                           const uint64_t *times, const uint8_t *channels, uint64_t count, uint64_t rows,
                           uint32_t *histo)
{
    countPlain(search, rules, time, times, channels, count, rows, histo);
}

} // namespace Tessel
