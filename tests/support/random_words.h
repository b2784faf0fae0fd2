// Record words at random, every kind of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TestSupport {

struct RandomWords
{
    size_t count = 0;
    bool t3 = true;
    double overflowShare = 0.07;
    uint32_t channels = 4;
    uint32_t seed = 1;
    bool ascending = true; // time tags and sync numbers from overflow to overflow, as an instrument sends them
};

std::vector<uint32_t> randomWords(const RandomWords &wanted);

} // namespace TestSupport
