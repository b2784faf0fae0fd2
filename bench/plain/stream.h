// What a replay should give, written apart from the library: record words to events, chains, histograms, each
// in the plainest form.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Plain {

struct Event
{
    uint64_t time; // T2: ps. T3: sync number above 15 bits of dtime
    uint8_t channel;
    bool operator==(const Event &) const = default;
};
using Events = std::vector<Event>;

// The same as the library takes it.
struct EventArrays
{
    explicit EventArrays(const Events &events)
    {
        for (const auto &[time, channel] : events) {
            times.push_back(time);
            channels.push_back(channel);
        }
    }
    std::vector<uint64_t> times;
    std::vector<uint8_t> channels;
};

// How a stored time becomes picoseconds and back.
struct StreamForm
{
    bool t3 = false;
    uint64_t period = 1;     // ps
    double resolution = 1.0; // ps

    uint64_t ps(uint64_t raw) const
    {
        if (!t3) return raw;
        return raw / 32768 * period + static_cast<uint64_t>(static_cast<int64_t>(
                                          static_cast<double>(static_cast<int32_t>(raw % 32768)) * resolution));
    }
    uint64_t raw(uint64_t ps) const
    {
        if (!t3) return ps;
        return (((ps % period) / static_cast<uint64_t>(resolution)) & 0x7FFF) | (ps / period) << 15;
    }
};

Events decodeT2(std::span<const uint32_t> words, uint32_t channels, uint64_t resolutionPs);
Events decodeT3(std::span<const uint32_t> words, uint32_t channels);

// Every event of a member a second time, under `output`; without `keep` only those.
Events merge(const Events &in, const std::vector<uint8_t> &members, uint8_t output, bool keep);

std::vector<uint32_t> histogramT3(const Events &events, size_t rows);
std::vector<uint32_t> histogramT2(const Events &events, size_t rows, uint64_t bins, uint64_t binWidth,
                                  uint8_t reference);

} // namespace Plain
