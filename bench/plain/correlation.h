// Pairs of two channels, in the form that a programmer writes first: no ring, as all times of the stream have
// room. Speeds are measured against it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace Plain {

// g2 of channels 1 and 2. Each keeps a cursor to the oldest time of the other that is still in the window.
class PairLoop
{
public:
    PairLoop(uint64_t widthPs, uint64_t binCount, uint64_t capacity);

    void count(const uint64_t *eventTimes, const uint8_t *channels, uint64_t events);

    std::array<std::vector<uint64_t>, 2> rows; // channel 1 after 2, channel 2 after 1

private:
    const uint64_t width, bins;
    std::array<std::vector<uint64_t>, 2> times;
    std::array<uint64_t, 2> counted{}, oldest{};
};

// Pairs by lag: bin k has those whose age is above lags[k] and at most lags[k + 1]. Of each row (1 after 1, 1
// after 2, 2 after 1, 2 after 2) each lag keeps a cursor to the first time that isn't beyond it.
class LagLoop
{
public:
    LagLoop(std::vector<uint64_t> ascendingLags, uint64_t capacity);

    // Without `counts` the cursors move on, and nothing is counted.
    void count(const uint64_t *eventTimes, const uint8_t *channels, uint64_t events, bool counts);

    std::array<std::vector<uint64_t>, 4> rows;

private:
    const std::vector<uint64_t> lags;
    std::array<std::vector<uint64_t>, 2> times;
    std::array<uint64_t, 2> counted{};
    std::array<std::vector<uint64_t>, 4> cursors;
};

} // namespace Plain
