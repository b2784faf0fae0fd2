// What a replay should give, written apart from the library: record words to events, chains, histograms, each
// in the plainest form.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace TestSupport {

struct Event
{
    uint64_t time; // T2: ps. T3: sync number above 15 bits of dtime
    uint8_t channel;
    bool operator==(const Event &) const = default;
};
using Events = std::vector<Event>;

Events decodeT2(std::span<const uint32_t> words, uint32_t channels, uint64_t resolutionPs);
Events decodeT3(std::span<const uint32_t> words, uint32_t channels);

// Every event of a member a second time, under `output`; without `keep` only those.
Events merge(const Events &in, const std::vector<uint8_t> &members, uint8_t output, bool keep);

std::vector<uint32_t> histogramT3(const Events &events, size_t rows);
std::vector<uint32_t> histogramT2(const Events &events, size_t rows, uint64_t bins, uint64_t binWidth,
                                  uint8_t reference);

} // namespace TestSupport
