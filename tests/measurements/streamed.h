// Events as the arrays that the counting loops take, in pieces as batches come.
#pragma once

#include "plain/stream.h"

#include <algorithm>
#include <random>

namespace TestSupport {

using namespace Plain;

struct Streamed
{
    std::vector<uint64_t> times;
    std::vector<uint8_t> channels;

    explicit Streamed(const Events &events)
    {
        for (const auto &[time, channel] : events) {
            times.push_back(time);
            channels.push_back(channel);
        }
    }

    // Calls `count(times, channels, size)` for pieces of at most `largestPiece` events.
    template <class Count>
    void inPieces(size_t largestPiece, std::mt19937_64 &random, Count count) const
    {
        for (size_t at = 0, size = 0; at < times.size(); at += size) {
            size = std::min<size_t>(1 + random() % largestPiece, times.size() - at);
            count(times.data() + at, channels.data() + at, size);
        }
    }
};

} // namespace TestSupport
