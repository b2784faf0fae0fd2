// Record words as an instrument with four busy inputs sends them, and events as they come out of the decoder.
#pragma once

#include "records/enums.h"
#include "stream/words.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Bench {

inline constexpr uint32_t Inputs = 4;

// `perMille` of the words are overflow records, at random places; a few are markers. T3: any dtime is as likely
// as any other. T2: a sync in eight events, 2048 units of time from event to event. Neither times nor sync
// numbers decrease.
inline std::vector<uint32_t> wordStream(Tessel::MeasMode mode, uint64_t count, uint32_t perMille)
{
    constexpr uint32_t special = 1u << 31, overflow = special | 63u << 25 | 1;
    std::mt19937 random(7);
    const bool isT2 = mode == Tessel::MeasMode::T2;
    std::vector<uint32_t> words(count);
    const uint32_t syncs = 2 * 1024 * perMille / 1000 + 1; // about 1024 from overflow to overflow
    uint32_t time = 0, nsync = 0;
    for (uint32_t &word : words) {
        const uint32_t kind = random() % 1000;
        nsync = kind < perMille ? 0 : std::min<uint32_t>(nsync + random() % syncs, 1023);
        if (isT2)
            time = kind < perMille ? 0 : std::min<uint32_t>(time + random() % 4096, 0x1FFFFFF);
        else
            time = (random() << 10 & 0x1FFFC00) | nsync;
        if (kind < perMille)
            word = overflow;
        else if (kind == 999)
            word = special | (1 + random() % 4) << 25 | time;
        else if (isT2 && random() % 8 == 0)
            word = special | time;
        else
            word = random() % Inputs << 25 | time;
    }
    return words;
}

struct Events
{
    explicit Events(uint64_t capacity) : Times(capacity), Channels(capacity) {}

    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;
    uint64_t Count = 0;
};

inline Events decoded(Tessel::MeasMode mode, const std::vector<uint32_t> &words)
{
    Events events(words.size());
    uint64_t overflowBase = 0;
    Tessel::InvalidWords invalid;
    events.Count = decode(words, {.Mode = mode, .NumChans = Inputs, .SyncPeriodPs = 5}, overflowBase,
                          events.Times.data(), events.Channels.data(), invalid);
    return events;
}

inline std::string caseName(const std::string &subject, uint32_t perMille, bool inMemory)
{
    return subject + "/overflows:" + std::to_string(perMille / 10) + "." + std::to_string(perMille % 10) +
           "%/" + (inMemory ? "memory" : "L2");
}

} // namespace Bench
