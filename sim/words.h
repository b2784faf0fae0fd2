// Record words of a simulated instrument. Bits, highest first:
//   T2   s cccccc ttttttttttttttttttttttttt     t: 25 bits of time; s = 1, c = 0: sync; c = 63: t overflows
//   T3   s cccccc ddddddddddddddd nnnnnnnnnn    d: 15 bits of dtime, n: 10 bits of sync number;
//                                               s = 1, c = 63: n overflows
// As on an instrument, an overflow word says how often the field has wrapped since the last record; more wraps
// than one word counts take several. Times must not go back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Tessel::Sim {

struct WordWriter
{
    uint32_t FieldBits = 10;   // 25 in T2, 10 in T3
    uint64_t MostWraps = 1023; // that one overflow word counts: what its field holds, or 1
    uint64_t Wraps = 0;        // that overflow words were written for
    uint64_t NumOverflows = 0; // words
    std::vector<uint32_t> Words;
};

inline WordWriter makeT2Words()
{
    return {.FieldBits = 25, .MostWraps = (1 << 25) - 1, .Words = {}};
}
inline WordWriter makeT3Words()
{
    return {.FieldBits = 10, .MostWraps = 1023, .Words = {}};
}

// Overflow words up to the absolute count (time tags or syncs).
inline void addOverflows(WordWriter &writer, uint64_t count)
{
    constexpr uint32_t overflow = 1u << 31 | 63u << 25;
    for (uint64_t missing = (count >> writer.FieldBits) - writer.Wraps; missing > 0;) {
        const uint64_t wraps = std::min(missing, writer.MostWraps);
        writer.Words.push_back(overflow | static_cast<uint32_t>(wraps));
        writer.Wraps += wraps;
        writer.NumOverflows += 1;
        missing -= wraps;
    }
}

// `channel`: input, from 0. `timetag`: since the start, in units of the base resolution.
inline void addT2Photon(WordWriter &writer, uint32_t channel, uint64_t timetag)
{
    addOverflows(writer, timetag);
    writer.Words.push_back(channel << 25 | static_cast<uint32_t>(timetag & 0x1ffffff));
}

inline void addT2Sync(WordWriter &writer, uint64_t timetag)
{
    addOverflows(writer, timetag);
    writer.Words.push_back(1u << 31 | static_cast<uint32_t>(timetag & 0x1ffffff));
}

// `bits`: 1 to 15, a bit for each marker. `field`: of T2 the time tag, of T3 the sync number.
inline void addMarker(WordWriter &writer, uint32_t bits, uint64_t field)
{
    addOverflows(writer, field);
    const uint64_t mask = (uint64_t(1) << writer.FieldBits) - 1;
    writer.Words.push_back(1u << 31 | bits << 25 | static_cast<uint32_t>(field & mask));
}

// `dtime`: below 32768.
inline void addT3Photon(WordWriter &writer, uint32_t channel, uint64_t nsync, uint32_t dtime)
{
    addOverflows(writer, nsync);
    writer.Words.push_back(channel << 25 | dtime << 10 | static_cast<uint32_t>(nsync & 0x3ff));
}

} // namespace Tessel::Sim
