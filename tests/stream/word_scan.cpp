// What is told of a stream that nobody decodes, beside plain arithmetic on the same words.
#include "stream/word_scan.h"

#include "stream/order.h"
#include "support/random_words.h"
#include "support/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr uint32_t inputs = 3;

WordScan plainScan(const std::vector<uint32_t> &words, bool isT3, bool ignores18)
{
    WordScan found;
    const int64_t wrap = isT3 ? 1024 : 33554432;
    int64_t base = 0, before = 0;
    for (const uint32_t word : words) {
        const uint32_t kind = word >> 25;
        const bool isOverflow = kind == 127,
                   isInput = kind<inputs, isOther = kind> 64 ? kind <= 64 + 15 : kind == 64 && !isT3;
        const uint64_t record = found.Words++;
        bool isFaulty = false;
        if (isOverflow) base += word % wrap * wrap;
        if (isOverflow || isInput || isOther) {
            const int64_t time = isOverflow ? base : base + word % wrap;
            ++found.Events[isOverflow ? 255 : isInput ? kind + 1 : kind == 64 ? 0 : kind + 64];
            isFaulty = time < before;
            if (isFaulty) ++(isOverflow ? found.IdleOverflows : found.StepsBack);
            found.LatestTime = std::max(found.LatestTime, static_cast<uint64_t>(time));
            before = time;
        } else if (ignores18 && kind == 64 + 18) {
            ++found.Ignored;
        } else {
            isFaulty = ++found.Invalid > 0;
        }
        if (isFaulty) found.FirstFault = std::min(found.FirstFault, record);
    }
    return found;
}

} // namespace

TEST(WordScan, CountsWhatAPlainLoopCounts)
{
    std::mt19937 random(7);
    for (uint32_t round = 0; round < 60; ++round) {
        const bool isT3 = round % 2 == 0, ignores18 = round % 3 == 0;
        auto words = randomWords({.count = 50000, .t3 = isT3, .channels = inputs, .seed = round});
        const uint32_t bad[] = {t2Overflow(0),   t2Event(inputs, 5), t2Marker(18, 9),
                                t2Marker(40, 9), t2Event(0, 0),      t2Sync(100)};
        for (uint32_t i = 0; i < round % 5; ++i)
            words[random() % words.size()] = bad[random() % std::size(bad)];
        const DecodeRules rules{.Mode = isT3 ? MeasMode::T3 : MeasMode::T2,
                                .NumChans = inputs,
                                .SyncPeriodPs = 77,
                                .IgnoresCode18 = ignores18};
        WordScanner scanner(rules);
        StreamOrder order;
        std::vector<uint64_t> times(words.size());
        std::vector<uint8_t> channels(words.size());
        uint64_t base = 0, events = 0;
        for (size_t at = 0, count; at < words.size(); at += count) {
            count = std::min<size_t>(words.size() - at, random() % 40000);
            scanner.scan({words.data() + at, count});
            InvalidWords invalid;
            events += decodeInOrder({words.data() + at, count}, rules, base, times.data() + events,
                                    channels.data() + events, invalid, order);
        }
        const WordScan plain = plainScan(words, isT3, ignores18), &found = scanner.found();
        SCOPED_TRACE(round);
        EXPECT_EQ(found.Words, plain.Words);
        EXPECT_EQ(found.Events, plain.Events);
        EXPECT_EQ(found.Invalid, plain.Invalid);
        EXPECT_EQ(found.Ignored, plain.Ignored);
        EXPECT_EQ(found.StepsBack, plain.StepsBack);
        EXPECT_EQ(order.StepsBack, plain.StepsBack);
        uint64_t latest = 0, largest = 0;
        for (uint64_t i = 0; i < events; ++i) {
            const uint64_t time = isT3 ? times[i] >> 15 : times[i];
            if (channels[i] != 255 && i > 0 && time < (isT3 ? times[i - 1] >> 15 : times[i - 1]))
                largest = std::max(largest, latest - time);
            latest = std::max(latest, time);
        }
        EXPECT_EQ(order.LargestStep, largest);
        EXPECT_EQ(found.IdleOverflows, plain.IdleOverflows);
        EXPECT_EQ(found.FirstFault, plain.FirstFault);
        EXPECT_EQ(found.LatestTime, plain.LatestTime);
    }
}
