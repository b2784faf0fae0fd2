#include "plain/stream.h"

#include <algorithm>

namespace Plain {

namespace {

struct Fields
{
    bool special;
    uint32_t channel, low25;
};

Fields fieldsOf(uint32_t word)
{
    return {(word & 0x80000000u) != 0, (word / 0x2000000u) % 64, word % 0x2000000u};
}

bool isMarker(const Fields &word)
{
    return word.special && word.channel >= 1 && word.channel <= 15;
}
bool isOverflow(const Fields &word)
{
    return word.special && word.channel == 63;
}

} // namespace

Events decodeT2(std::span<const uint32_t> words, uint32_t channels, uint64_t resolutionPs)
{
    Events events;
    uint64_t base = 0;
    for (uint32_t raw : words) {
        Fields word = fieldsOf(raw);
        if (isOverflow(word)) {
            base += uint64_t{word.low25} * 33554432;
            events.push_back({base * resolutionPs, 255});
            continue;
        }
        uint64_t time = (base + word.low25) * resolutionPs;
        if (!word.special && word.channel < channels)
            events.push_back({time, static_cast<uint8_t>(word.channel + 1)});
        else if (word.special && word.channel == 0)
            events.push_back({time, 0});
        else if (isMarker(word))
            events.push_back({time, static_cast<uint8_t>(word.channel + 128)});
    }
    return events;
}

Events decodeT3(std::span<const uint32_t> words, uint32_t channels)
{
    Events events;
    uint64_t base = 0;
    for (uint32_t raw : words) {
        Fields word = fieldsOf(raw);
        uint64_t dtime = word.low25 / 1024, nsync = word.low25 % 1024;
        if (isOverflow(word)) {
            base += nsync * 1024;
            events.push_back({base * 32768 + dtime, 255});
            continue;
        }
        uint64_t time = (base + nsync) * 32768 + dtime;
        if (!word.special && word.channel < channels)
            events.push_back({time, static_cast<uint8_t>(word.channel + 1)});
        else if (isMarker(word))
            events.push_back({time, static_cast<uint8_t>(word.channel + 128)});
    }
    return events;
}

Events merge(const Events &in, const std::vector<uint8_t> &members, uint8_t output, bool keep)
{
    Events out;
    for (const Event &event : in) {
        bool member = std::find(members.begin(), members.end(), event.channel) != members.end();
        if (keep || member) out.push_back(event);
        if (member) out.push_back({event.time, output});
    }
    return out;
}

std::vector<uint32_t> histogramT3(const Events &events, size_t rows)
{
    std::vector<uint32_t> counts(rows * 32768);
    for (const Event &event : events)
        if (event.channel < 128 && event.channel < rows) ++counts[event.channel * 32768 + event.time % 32768];
    return counts;
}

std::vector<uint32_t> histogramT2(const Events &events, size_t rows, uint64_t bins, uint64_t binWidth,
                                  uint8_t reference)
{
    std::vector<uint32_t> counts(rows * bins);
    uint64_t last = 0;
    for (const Event &event : events) {
        if (event.channel >= 128 || event.channel >= rows) continue;
        uint64_t bin = (event.time - last) / binWidth;
        if (last != 0 && bin < bins) ++counts[event.channel * bins + bin];
        if (event.channel == reference) last = event.time;
    }
    return counts;
}

} // namespace Plain
