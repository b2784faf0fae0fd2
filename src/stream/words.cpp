// Record words one by one: the meaning of each word in its plainest form, and the text of an invalid one.
#include "stream/words.h"

#include "stream/event_store.h"
#include "stream/times.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel {

namespace {

// Where the next event goes.
struct Output
{
    uint64_t *Times;
    uint8_t *Channels;
    uint64_t Count = 0;

    void append(uint64_t time, uint32_t code)
    {
        Times[Count] = time;
        Channels[Count] = static_cast<uint8_t>(code);
        ++Count;
    }
};

constexpr uint32_t markerCode(uint32_t channel)
{
    return channel | ChannelCode::Special;
}

bool isIgnored(uint32_t word)
{
    return Word::special(word) && Word::channel(word) == Word::IgnoredChannel;
}

void dropInvalid(uint32_t word, const DecodeRules &rules, InvalidWords &invalid)
{
    if (rules.IgnoresCode18 && isIgnored(word)) return;
    invalid.add(word);
}

uint64_t overflowOfT2(uint32_t word)
{
    return uint64_t{Word::timetag(word)} << 25;
}

uint64_t overflowOfT3(uint32_t word)
{
    return uint64_t{Word::nsync(word)} << 10;
}

void decodeT2(uint32_t word, const DecodeRules &rules, uint64_t &overflowBase, Output &out,
              InvalidWords &invalid)
{
    const uint32_t channel = Word::channel(word);
    const uint64_t time = (overflowBase + Word::timetag(word)) * rules.SyncPeriodPs;
    if (!Word::special(word)) {
        if (channel < rules.NumChans)
            out.append(time, channel + 1);
        else
            dropInvalid(word, rules, invalid);
    } else if (channel == 0) {
        out.append(time, ChannelCode::Sync);
    } else if (channel <= Word::MaxMarker) {
        out.append(time, markerCode(channel));
    } else if (channel == Word::OverflowChannel) {
        overflowBase += overflowOfT2(word);
        out.append(overflowBase * rules.SyncPeriodPs, ChannelCode::Overflow);
    } else {
        dropInvalid(word, rules, invalid);
    }
}

void decodeT3(uint32_t word, const DecodeRules &rules, uint64_t &overflowBase, Output &out,
              InvalidWords &invalid)
{
    const uint32_t channel = Word::channel(word);
    const uint64_t time = (overflowBase + Word::nsync(word)) << dtimeBits | Word::dtime(word);
    if (!Word::special(word)) {
        if (channel < rules.NumChans)
            out.append(time, channel + 1);
        else
            dropInvalid(word, rules, invalid);
    } else if (channel >= 1 && channel <= Word::MaxMarker) {
        out.append(time, markerCode(channel));
    } else if (channel == Word::OverflowChannel) {
        overflowBase += overflowOfT3(word);
        out.append(overflowBase << dtimeBits | Word::dtime(word), ChannelCode::Overflow);
    } else {
        dropInvalid(word, rules, invalid);
    }
}

} // namespace

DecodeRules rulesOf(const StreamFacts &facts)
{
    return {.Mode = facts.Mode,
            .NumChans = static_cast<uint32_t>(std::max(facts.NumChans, 0)),
            .SyncPeriodPs = static_cast<uint64_t>(facts.SyncPeriodPs),
            .IgnoresCode18 = facts.IgnoresCode18};
}

uint64_t decodePlain(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t &overflowBase,
                     uint64_t *times, uint8_t *channels, InvalidWords &invalid)
{
    Output out{times, channels};
    switch (rules.Mode) {
    case MeasMode::T2:
        for (const uint32_t word : words) decodeT2(word, rules, overflowBase, out, invalid);
        break;
    case MeasMode::T3:
        for (const uint32_t word : words) decodeT3(word, rules, overflowBase, out, invalid);
        break;
    case MeasMode::Histogramming: break;
    }
    return out.Count;
}

uint64_t invalidAmong(std::span<const uint32_t> words, uint64_t events, const DecodeRules &rules)
{
    const uint64_t dropped = words.size() - events;
    if (dropped == 0 || !rules.IgnoresCode18) return dropped;
    return dropped - static_cast<uint64_t>(std::ranges::count_if(words, isIgnored));
}

std::string invalidWordText(MeasMode mode, uint32_t word, std::string_view deviceId)
{
    const uint32_t special = Word::special(word) ? 1 : 0;
    if (mode == MeasMode::T2)
        return fmt::format("Device: T2Rec 0x{:08x} tt:{} ch:{} s:{} invalid @{}", word, Word::timetag(word),
                           Word::channel(word), special, deviceId);
    // The fields after 0x are decimal: readers of the log know them so.
    return fmt::format("Device: T3Rec 0x{:08x} Chan:0x{} nSync:0x{} dTime:0x{} s:{} invalid @{}", word,
                       Word::channel(word), Word::nsync(word), Word::dtime(word), special, deviceId);
}

} // namespace Tessel
