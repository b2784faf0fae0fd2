// Divisions without a division, against the division.
#include "stream/division.h"

#include <gtest/gtest.h>

#include <random>

using namespace Tessel;

TEST(Division, IsTheIntegerQuotient)
{
    constexpr uint64_t end = uint64_t{1} << 63;
    std::mt19937_64 random(1);
    for (int bits = 0; bits < 64; ++bits)
        for (uint64_t divisor : {(uint64_t{1} << bits) - 1, uint64_t{1} << bits, (uint64_t{1} << bits) + 1,
                                 (uint64_t{1} << bits) + (random() >> (64 - bits) % 64)})
            withDivision(std::max<uint64_t>(divisor, 1), [&](const auto &division) {
                const uint64_t by = std::max<uint64_t>(divisor, 1), last = (end - 1) / by * by;
                const uint64_t some = (random() >> (random() % 63 + 1)) / by * by;
                for (uint64_t number : {uint64_t{0}, by - 1, by, last - 1, last, end - 1, some, some + by - 1})
                    if (number < end) {
                        ASSERT_EQ(division(number), number / by) << number << " / " << by;
                    }
            });
}
