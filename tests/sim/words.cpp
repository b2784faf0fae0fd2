// Record words of a simulation: what a decoder must make of them, and that no count of wraps is lost.
#include "support/words.h"

#include "sim/random.h"
#include "sim/words.h"

#include <gtest/gtest.h>

using namespace Tessel::Sim;
using namespace TestSupport;

TEST(SourceWords, TellOverflowsAsInstrumentsDo)
{
    WordWriter t3 = makeT3Words();
    addT3Photon(t3, 1, 5, 300);
    addT3Photon(t3, 0, 1023, 32767);
    addT3Photon(t3, 2, 1024, 0);
    addT3Photon(t3, 2, 1024 * 4 + 7, 1);
    addOverflows(t3, 1024 * 1030);
    EXPECT_EQ(t3.Words, (std::vector<uint32_t>{t3Event(1, 5, 300), t3Event(0, 1023, 32767), t3Overflow(1),
                                               t3Event(2, 0, 0), t3Overflow(3), t3Event(2, 7, 1),
                                               t3Overflow(1023), t3Overflow(3)}));
    EXPECT_EQ(t3.NumOverflows, 4u);

    WordWriter t2 = makeT2Words();
    addT2Sync(t2, 0);
    addT2Photon(t2, 63, 33554431);
    addT2Photon(t2, 0, 33554432);
    addT2Sync(t2, 33554432ull * 5 + 9);
    EXPECT_EQ(t2.Words, (std::vector<uint32_t>{t2Sync(0), t2Event(63, 33554431), t2Overflow(1), t2Event(0, 0),
                                               t2Overflow(4), t2Sync(9)}));
}

TEST(SourceWords, DecodeToTheTimesThatWereWritten)
{
    Random random = makeRandom(17);
    for (const double meanStep : {3.0, 900.0, 5e4, 3e6}) { // syncs; the last ones need several words at once
        WordWriter writer = makeT3Words();
        std::vector<uint64_t> times;
        uint64_t nsync = 0;
        for (int i = 0; i < 20000; ++i) {
            nsync += static_cast<uint64_t>(exponential(random) * meanStep);
            times.push_back(nsync);
            addT3Photon(writer, 3, nsync, static_cast<uint32_t>(i % 32768));
        }
        uint64_t base = 0;
        std::vector<uint64_t> decoded;
        for (const uint32_t word : writer.Words)
            if (word >> 31) {
                ASSERT_EQ(word >> 25, 127u);
                ASSERT_NE(word & 1023, 0u);
                base += (word & 1023) * uint64_t(1024);
            } else {
                ASSERT_EQ(word >> 25, 3u);
                ASSERT_EQ(word >> 10 & 32767, decoded.size() % 32768);
                decoded.push_back(base + (word & 1023));
            }
        EXPECT_EQ(decoded, times) << meanStep;
        EXPECT_EQ(writer.Words.size(), times.size() + writer.NumOverflows);
    }
}
