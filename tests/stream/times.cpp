// Picosecond times of T3 events, and back.
#include "stream/times.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace Tessel;

TEST(T3Time, AnyResolutionHasATime)
{
    constexpr uint64_t last = uint64_t{3} << dtimeBits | dtimeMask; // dtime 32767 of sync 3
    const struct
    {
        double resolution;
        uint64_t dtimePs;
    } cases[] = {{4.7, 154'004}, {0, 0}, {-1, 0}, {NAN, 0}, {0x1p48, 32767ull << 48}, {1e300, 32767ull << 48}};
    for (const auto &given : cases) {
        const StreamFacts facts{.Mode = MeasMode::T3, .SyncPeriodPs = 1000, .Resolution = given.resolution};
        EXPECT_EQ(T3Time(facts).ps(last), 3000 + given.dtimePs) << given.resolution;
        EXPECT_EQ(RawTime(facts).ps(last), 3000 + given.dtimePs) << given.resolution;
    }
    EXPECT_EQ(RawTime(StreamFacts{.Mode = MeasMode::Histogramming}).ps(last), 0u);
}

// From raw times alone a loop knows on which side of a time they are, but for those in between.
TEST(T3Time, EdgesInRawTimesAreSafe)
{
    std::mt19937_64 random(1);
    for (double resolution : {1.0, 4.7, 300.0})
        for (int64_t period : {1, 12'500, 1'000'000}) {
            const T3Time time(
                StreamFacts{.Mode = MeasMode::T3, .SyncPeriodPs = period, .Resolution = resolution});
            for (int i = 0; i < 2000; ++i) {
                const uint64_t ps = random() % 100'000'000, raw = random() % (200ull << dtimeBits);
                if (raw < time.surelyBefore(ps)) {
                    ASSERT_LT(time.ps(raw), ps);
                }
                if (raw >= time.surelyFrom(ps)) {
                    ASSERT_GE(time.ps(raw), ps);
                }
            }
        }
}
