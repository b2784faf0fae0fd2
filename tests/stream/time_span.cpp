// The run of times that lie within a span, on every instruction set, against a loop over single times.
#include "stream/time_span.h"

#include "support/simd_targets.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Tessel;

TEST(TimeSpan, EndsAtTheFirstTimeOutside)
{
    constexpr uint64_t most = UINT64_MAX;
    const std::pair<uint64_t, uint64_t> spans[] = {
        {1000, 2000}, {0, 5}, {7, 8}, {5, 5}, {9, 3}, {0, most}, {most - 3, most}, {uint64_t{1} << 63, most}};
    TestSupport::forEachSimdTarget([&] {
        std::mt19937_64 random(1);
        for (const auto &[from, to] : spans)
            for (int round = 0; round < 200; ++round) {
                std::vector<uint64_t> times(random() % 150);
                for (uint64_t &time : times) time = to > from ? from + random() % (to - from) : random();
                if (!times.empty() && round % 4 != 0) { // just outside, on either side
                    uint64_t &outside = times[random() % times.size()];
                    outside = random() % 2 ? to : from - 1;
                }
                uint64_t expected = 0;
                while (expected < times.size() && times[expected] >= from && times[expected] < to) ++expected;
                EXPECT_EQ(leadingWithin(times.data(), times.size(), from, to), expected)
                    << from << ".." << to << " of " << times.size();
            }
    });
}
