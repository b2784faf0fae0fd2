// The loops of the two-dimensional histogram.
//
// Which event is a reference, an X or a Y is as random as light, so the search of a block doesn't branch on it:
// it follows the times with selects and notes a pair behind each event, moving on only past those that count.
// The noted pairs are then binned one after the other, without waiting for each other.
#include "measurements/histogram_2d_count.h"

#include "stream/division.h"
#include "stream/event_store.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>

namespace Tessel {

namespace {

constexpr uint64_t unset = PairSearch::unset;
constexpr uint64_t blockEvents = 512; // their pairs stay in the first-level cache

uint64_t dtimePs(uint64_t raw, const PairRules &rules)
{
    return (raw & dtimeMask) * rules.Resolution;
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
        const uint64_t reference = time.syncPs(search.XSync << dtimeBits);
        pair = {search.X, search.Y, reference - search.PreviousRef};
        search.PreviousRef = reference;
        search.X = search.Y = unset;
    }
    const uint64_t sync = raw >> dtimeBits;
    if (channel == params.H2dChanX) {
        search.X = dtimePs(raw, rules) - params.H2dOffsetX;
        search.XSync = sync;
    }
    if (channel == params.H2dChanY) {
        search.Y = dtimePs(raw, rules) - params.H2dOffsetY - (params.H2dTotMode ? search.X : 0);
        search.YSync = sync;
    }
    return pair;
}

bool isRecovering(const Histo2dParams &params, const Pair &pair)
{
    return (pair.Gap < params.H2dRecoveryMin) | (pair.Gap > params.H2dRecoveryMax);
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

// What an event of each channel is, as masks: arithmetic, so that no compiler makes a branch of it.
class Roles
{
public:
    Roles(const Histo2dParams &params, uint64_t rows)
    {
        for (uint64_t channel = 0; channel < std::min<uint64_t>(rows, ChannelCode::Special); ++channel) {
            Counts[channel] = 1;
            IsStart[channel] = maskOf(channel == params.H2dStartChan);
            IsX[channel] = maskOf(channel == params.H2dChanX);
            IsY[channel] = maskOf(channel == params.H2dChanY);
            IsXOrY[channel] = (IsX[channel] | IsY[channel]) != 0;
        }
    }
    static uint64_t maskOf(bool condition) { return uint64_t{0} - uint64_t{condition}; }

    std::array<uint8_t, 256> Counts{}, IsXOrY{};
    std::array<uint64_t, 256> IsStart{}, IsX{}, IsY{};
};

uint64_t select(uint64_t mask, uint64_t value, uint64_t otherwise)
{
    return otherwise ^ ((value ^ otherwise) & mask);
}

// The pairs that a block of events counts, as the search stood at each.
struct PairBlock
{
    std::array<uint64_t, blockEvents + 1> X, Y, Reference; // one may be left from the block before
    uint64_t Count = 0;
};

void searchBlock(PairSearch &search, const PairRules &rules, T2Time, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, const Roles &roles, PairBlock &found)
{
    const uint64_t offsetX = rules.Params.H2dOffsetX, offsetY = rules.Params.H2dOffsetY;
    uint64_t x = search.X, y = search.Y, reference = search.LastRefTime, pairs = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t time = times[i], channel = channels[i], isStart = roles.IsStart[channel];
        found.X[pairs] = x;
        found.Y[pairs] = y;
        found.Reference[pairs] = reference;
        pairs += roles.Counts[channel] & (x != unset) & (y != unset) & (reference != 0);
        reference = select(isStart, time, reference);
        x = select(roles.IsX[channel], time - offsetX, x | isStart); // all ones: unset
        y = select(roles.IsY[channel], time - offsetY, y | isStart);
    }
    search.X = x;
    search.Y = y;
    search.LastRefTime = reference;
    found.Count = pairs;
}

bool countsAny(const uint8_t *channels, uint64_t count, const Roles &roles)
{
    return std::any_of(channels, channels + count,
                       [&roles](uint8_t channel) { return roles.Counts[channel] != 0; });
}

// Only X and Y change what is searched, so the others are sorted out first. A pair is noted before the next X
// or Y is looked at: whatever event came first behind it has counted it, once.
void searchBlock(PairSearch &search, const PairRules &rules, const T3Time &, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, const Roles &roles, PairBlock &found)
{
    std::array<uint16_t, blockEvents> positions;
    uint64_t searched = 0;
    for (uint64_t i = 0; i < count; ++i) {
        positions[searched] = static_cast<uint16_t>(i);
        searched += roles.IsXOrY[channels[i]];
    }
    const uint64_t offsetX = rules.Params.H2dOffsetX, offsetY = rules.Params.H2dOffsetY;
    const uint64_t tot = Roles::maskOf(rules.Params.H2dTotMode != 0);
    PairSearch now = search;
    uint64_t pairs = 0;
    const auto note = [&](bool isCounted) {
        found.X[pairs] = now.X;
        found.Y[pairs] = now.Y;
        found.Reference[pairs] = now.XSync;
        const bool ready = isCounted & (now.XSync == now.YSync) & (now.X != unset) & (now.Y != unset);
        pairs += ready;
        now.X |= Roles::maskOf(ready); // all ones: unset
        now.Y |= Roles::maskOf(ready);
    };
    for (uint64_t k = 0; k < searched; ++k) {
        const uint64_t raw = times[positions[k]], channel = channels[positions[k]];
        const uint64_t sync = raw >> dtimeBits, delay = dtimePs(raw, rules);
        const uint64_t isX = roles.IsX[channel], isY = roles.IsY[channel];
        note(true);
        now.X = select(isX, delay - offsetX, now.X);
        now.XSync = select(isX, sync, now.XSync);
        now.Y = select(isY, delay - offsetY - (now.X & tot), now.Y);
        now.YSync = select(isY, sync, now.YSync);
    }
    const uint64_t behind = searched == 0 ? 0 : positions[searched - 1] + uint64_t{1};
    note(countsAny(channels + behind, count - behind, roles));
    search = now;
    found.Count = pairs;
}

// The pair from its times.
Pair pairOf(PairSearch &search, const PairRules &rules, T2Time, const PairBlock &found, uint64_t i)
{
    const uint64_t x = found.X[i], reference = found.Reference[i];
    const uint64_t originY = rules.Params.H2dTotMode ? x : reference;
    return {x - reference, found.Y[i] - originY, reference - std::exchange(search.PreviousRef, reference)};
}
Pair pairOf(PairSearch &search, const PairRules &, const T3Time &time, const PairBlock &found, uint64_t i)
{
    const uint64_t reference = time.syncPs(found.Reference[i] << dtimeBits);
    return {found.X[i], found.Y[i], reference - std::exchange(search.PreviousRef, reference)};
}

constexpr uint64_t exactDoubles = uint64_t{1} << 53;

// Delay / width for delays below 2^62, both doubled: so a width of 1 has a reciprocal too.
class DelayDivision
{
public:
    explicit DelayDivision(uint64_t width) : division(2 * std::min(width, exactDoubles)) {}
    uint64_t operator()(uint64_t delay) const { return division(2 * delay); }

private:
    ReciprocalDivision division;
};

// Where an axis ends, in ps; 0 if that is beyond the doubles' exact whole numbers, or there is no bin.
uint64_t axisEnd(uint64_t width, uint64_t numBins)
{
    return numBins > exactDoubles / width ? 0 : numBins * width;
}

// Bins pairs as elementOf does. Without a slope the column is the integer quotient: below 2^53 the doubles'
// quotient isn't rounded up to the next whole number, from which it is 1 / width away, more than half a step
// there.
template <class Time>
class PairBinning
{
public:
    PairBinning(const PairRules &pairRules, const Time &pairTime)
        : rules(pairRules),
          params(pairRules.Params),
          time(pairTime),
          endX(axisEnd(params.H2dBinWidthX, params.H2dNumBinsX)),
          endY(axisEnd(params.H2dBinWidthY, params.H2dNumBinsY)),
          columnOf(params.H2dBinWidthX),
          rowOf(params.H2dBinWidthY)
    {
    }

    void count(PairSearch &search, const PairBlock &block, uint32_t *histo) const
    {
        if (endX == 0 || endY == 0)
            countPlainly(search, block, histo);
        else if (params.H2dSlope != 0 || params.H2dRecoverySlope != 0)
            countAll<true>(search, block, histo);
        else
            countAll<false>(search, block, histo);
    }

private:
    void countPlainly(PairSearch &search, const PairBlock &block, uint32_t *histo) const
    {
        for (uint64_t i = 0; i < block.Count; ++i) {
            const Pair pair = pairOf(search, rules, time, block, i);
            if (const auto element = elementOf(params, pair, isRecovering(params, pair))) ++histo[*element];
        }
    }

    // A pair outside leaves an element that the next one overwrites.
    template <bool Sheared>
    void countAll(PairSearch &search, const PairBlock &block, uint32_t *histo) const
    {
        std::array<uint64_t, blockEvents> elements;
        uint64_t counted = 0;
        for (uint64_t i = 0; i < block.Count; ++i) {
            const Pair pair = pairOf(search, rules, time, block, i);
            const uint64_t recovering = Roles::maskOf(isRecovering(params, pair));
            const uint64_t x = pair.X + (recovering & params.H2dRecoveryOffsetX);
            const uint64_t y = pair.Y + (recovering & params.H2dRecoveryOffsetY);
            bool isInside = y < endY;
            uint64_t column;
            if constexpr (Sheared) {
                const double sheared = shearedColumn(pair, x, recovering != 0);
                isInside &= (sheared > -1.0) & (sheared < static_cast<double>(params.H2dNumBinsX));
                const auto bits = std::bit_cast<uint64_t>(sheared) & Roles::maskOf(isInside);
                column = static_cast<uint64_t>(static_cast<int64_t>(std::bit_cast<double>(bits)));
            } else {
                isInside &= x < endX;
                column = columnOf(x);
            }
            elements[counted] = params.H2dNumBinsX * rowOf(y) + column;
            counted += isInside;
        }
        for (uint64_t i = 0; i < counted; ++i) ++histo[elements[i]];
    }

    double shearedColumn(const Pair &pair, uint64_t x, bool recovering) const
    {
        const double slope = recovering ? params.H2dSlope + params.H2dRecoverySlope : params.H2dSlope;
        return std::fma(slope, static_cast<double>(pair.Y), static_cast<double>(x)) /
               static_cast<double>(params.H2dBinWidthX);
    }

    const PairRules &rules;
    const Histo2dParams &params;
    const Time &time;
    const uint64_t endX, endY;
    const DelayDivision columnOf, rowOf;
};

template <class Time>
void countBlocks(PairSearch &search, const PairRules &rules, const Time &time, const uint64_t *times,
                 const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo)
{
    const PairBinning binning(rules, time);
    const Roles roles(rules.Params, rows);
    PairBlock found;
    for (uint64_t at = 0; at < count; at += blockEvents) {
        searchBlock(search, rules, time, times + at, channels + at, std::min(blockEvents, count - at), roles,
                    found);
        binning.count(search, found, histo);
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

} // namespace Tessel
