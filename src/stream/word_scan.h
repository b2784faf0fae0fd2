// What a stream of record words holds, and what in it can't be right. Decoded as for a run, but counted instead
// of kept. No lock and no thread.
#pragma once

#include "stream/words.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>

namespace Tessel {

struct WordScan
{
    static constexpr uint64_t none = UINT64_MAX;

    uint64_t Words = 0;
    std::array<uint64_t, 256> Events{}; // by ChannelCode
    uint64_t Invalid = 0;               // words of a channel or kind that the device hasn't got
    uint64_t Ignored = 0;               // words of channel 18, where they are no fault
    uint64_t StepsBack = 0;             // events earlier than the one before them; T3: of an earlier sync
    uint64_t IdleOverflows = 0;         // overflow records that are earlier than the event before them
    uint64_t FirstFault = none;         // word of the first of these, from 0
    uint64_t LatestTime = 0;            // T2: time tags, T3: syncs since the start
};

// Takes the stream piece by piece; pieces of any size.
class WordScanner
{
public:
    // The unit of a T2 time tag doesn't matter here.
    explicit WordScanner(DecodeRules rules);

    void scan(std::span<const uint32_t> words);
    const WordScan &found() const { return scanned; }

private:
    static constexpr uint64_t pieceWords = 16384; // with their events they stay in the second-level cache

    void scanPiece(std::span<const uint32_t> words);
    void countEvents(uint64_t count);
    void countStepsBack(uint64_t count);
    uint64_t firstFaultIn(std::span<const uint32_t> words, uint64_t base) const;
    uint64_t timeOf(uint64_t raw) const { return raw >> timeShift; }

    DecodeRules rules;
    int timeShift = 0; // T3: the dtimes of one sync may come in any order
    uint64_t overflowBase = 0;
    uint64_t lastTime = 0; // of the piece before
    std::unique_ptr<uint64_t[]> times = std::make_unique_for_overwrite<uint64_t[]>(pieceWords);
    std::unique_ptr<uint8_t[]> channels = std::make_unique_for_overwrite<uint8_t[]>(pieceWords);
    WordScan scanned;
};

} // namespace Tessel
