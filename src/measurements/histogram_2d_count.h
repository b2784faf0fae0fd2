// The inner loops of the two-dimensional histogram: decoded events in, counts of pairs out. No lock and no
// thread.
//
// A pair is the time of the last event on channel X and the time of the last one on channel Y, both after a
// common reference: in T2 the last event on the start channel, in T3 the sync. In T2 every event that follows
// counts the pair, until the next reference; in T3 the event that follows counts it once. Markers, overflow
// records and channels that have no row are passed over.
#pragma once

#include "records/params.h"
#include "stream/times.h"

#include <cstdint>
#include <optional>

namespace Tessel {

// What the stream has brought so far. A batch ends anywhere, so a pair may span several.
struct PairSearch
{
    static constexpr uint64_t unset = UINT64_MAX;

    uint64_t LastRefTime = 0;              // ps, 0 = none seen; T2 only
    uint64_t PreviousRef = 0;              // ps; the reference of the last pair that was counted
    uint64_t X = unset, Y = unset;         // ps; T3: since the sync
    uint64_t XSync = unset, YSync = unset; // number of the sync; T3 only
};

// Differences of times: one that should be negative is very large.
struct Pair
{
    uint64_t X, Y; // ps
    uint64_t Gap;  // ps since the reference of the pair before
};

// Constant for a run.
struct PairRules
{
    Histo2dParams Params;
    uint64_t Resolution = 1; // whole ps; T3 only
};

// Takes one event with a row; returns the pair that it counts.
std::optional<Pair> nextPair(PairSearch &search, const PairRules &rules, T2Time time, uint64_t raw,
                             uint8_t channel);
std::optional<Pair> nextPair(PairSearch &search, const PairRules &rules, const T3Time &time, uint64_t raw,
                             uint8_t channel);

// Whether the reference came so soon or so late that the correction applies.
bool isRecovering(const Histo2dParams &params, const Pair &pair);

// The element NumBinsX x by + bx that a pair counts in; nothing if it lies outside. `recovering`: with the
// slope and the offsets of that case.
std::optional<uint64_t> elementOf(const Histo2dParams &params, const Pair &pair, bool recovering);

// `histo`: NumBinsX x NumBinsY counts, which wrap at 32 bits. `rows`: channels from here on are passed over.
void histogram2dCount(PairSearch &search, const PairRules &rules, T2Time time, const uint64_t *times,
                      const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo);
void histogram2dCount(PairSearch &search, const PairRules &rules, const T3Time &time, const uint64_t *times,
                      const uint8_t *channels, uint64_t count, uint64_t rows, uint32_t *histo);

} // namespace Tessel
