// Record words of the T2 and T3 streams, and their decoding into events. No lock and no thread: arrays in,
// arrays out.
//
//   bit   31 30....25 24...................0
//   T2     s cccccc   ttttttttttttttttttttttttt           t = timetag, in units of the base resolution
//   T3     s cccccc   ddddddddddddddd nnnnnnnnnn          d = dtime (bits 24 to 10), n = nsync (bits 9 to 0)
//
// s = 0: an event on input c, which is below the number of inputs. s = 1: c = 0 is a sync (T2 only), 1 to 15 a
// marker, 63 an overflow, whose count stands in t or n. Anything else is invalid.
// Worked T3 word: 0x04000C05 = s 0, c 2, d 3, n 5, becomes channel 3 and time (OverflowBase + 5) << 15 | 3.
#pragma once

#include "records/enums.h"
#include "records/facts.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tessel {

namespace Word {
inline constexpr uint32_t SpecialBit = 1u << 31;
inline constexpr uint32_t MaxMarker = 15, IgnoredChannel = 18, OverflowChannel = 63;
// The special bit and the channel together, bits 31 to 25.
inline constexpr uint32_t SyncKind = 64, FirstMarkerKind = 64 + 1, OverflowKind = 64 + OverflowChannel;

constexpr bool special(uint32_t word)
{
    return (word & SpecialBit) != 0;
}
constexpr uint32_t channel(uint32_t word)
{
    return word >> 25 & 0x3F;
}
constexpr uint32_t timetag(uint32_t word)
{
    return word & 0x1FFFFFF;
}
constexpr uint32_t dtime(uint32_t word)
{
    return word >> 10 & 0x7FFF;
}
constexpr uint32_t nsync(uint32_t word)
{
    return word & 0x3FF;
}
} // namespace Word

// The first `Room` invalid words of a batch, in their order, for the log. Those beyond are dropped silently.
struct InvalidWords
{
    std::array<uint32_t, 10> Words{};
    uint32_t Count = 0;
    uint32_t Room = 10;

    bool hasRoom() const { return Count < Room && Count < Words.size(); }
    void add(uint32_t word)
    {
        if (hasRoom()) Words[Count++] = word;
    }
};

// What a run's words mean; constant for the run.
struct DecodeRules
{
    MeasMode Mode = MeasMode::T3; // T2 or T3; in any other mode nothing is decoded
    uint32_t NumChans = 0;        // inputs of the instrument
    uint64_t SyncPeriodPs = 1;    // T2 only: the base resolution
    bool IgnoresCode18 = false;   // SV40 sends special words of channel 18 that mean nothing
};

DecodeRules rulesOf(const StreamFacts &facts);

// Decodes `words` to the front of `times` and `channels`, gives the number of events, and moves `overflowBase`
// on. Both arrays must have room for words.size() events. What is after the returned number, up to
// words.size(), may have been overwritten; nothing beyond that is touched. All arithmetic wraps at 64 bits.
uint64_t decode(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                uint64_t *times, uint8_t *channels, InvalidWords &invalid);

// The same, word by word: what `decode` is compared with, and what it does where wide registers don't pay.
uint64_t decodePlain(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                     uint64_t *times, uint8_t *channels, InvalidWords &invalid);

// How many of `words`, which decoded to `events` events, were invalid.
uint64_t invalidAmong(std::span<const uint32_t> words, uint64_t events, const DecodeRules &rules);

// By how much decoding these words would have moved the overflow base on.
uint64_t overflowsIn(std::span<const uint32_t> words, MeasMode mode);

// What is known of words without decoding them.
struct WordSums
{
    uint64_t Overflows = 0; // as overflowsIn()
    bool AllValid = true;   // each word decodes to an event
    bool Ascends = true;    // no word is earlier than the one before it; in T3 by its sync, invalid ones too
};
WordSums sumsOf(std::span<const uint32_t> words, MeasMode mode, uint32_t numChans);

// The log line of an invalid word.
std::string invalidWordText(MeasMode mode, uint32_t word, std::string_view deviceId);

} // namespace Tessel
