// The decoded stream in the caller's block: every event once and in order, whatever the block's size and
// however its reader behaves.
#include "support/host.h"
#include "support/measured_events.h"
#include "support/random_words.h"
#include "support/reference.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t channels = 4;
constexpr uint64_t resolution = 5;

struct Recording
{
    std::vector<uint32_t> words;
    bool t3;

    Recording(size_t count, bool isT3) : words(randomWords({count, isT3, 0.07, channels, 23})), t3(isT3) {}

    std::string open(Host &host) const
    {
        auto file = t3 ? TgxFile::t3(channels, resolution) : TgxFile::t2(channels, resolution);
        return host.open(file, words);
    }
    Events events() const { return t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution); }
};

// A block and the copy that the reader takes of it.
struct Block
{
    explicit Block(size_t size) : times(size, 77), channelCodes(size, 77), copyTimes(size), copyChannels(size)
    {
    }

    // What stood in the block; nothing leaves the count as it was.
    uint64_t fetch(Events &events)
    {
        uint64_t count = 0;
        EXPECT_TRUE(ufGetBlock(nullptr, copyTimes.data(), copyChannels.data(), &count));
        append(copyTimes, copyChannels, count, events);
        return count;
    }
    static void append(const std::vector<uint64_t> &times, const std::vector<uint8_t> &codes, uint64_t count,
                       Events &events)
    {
        for (uint64_t i = 0; i < count; ++i) events.push_back({times[i], codes[i]});
    }

    std::vector<uint64_t> times;
    std::vector<uint8_t> channelCodes;
    std::vector<uint64_t> copyTimes;
    std::vector<uint8_t> copyChannels;
};

struct UnfoldCase
{
    const char *name;
    size_t words;
    size_t blockSize;
    std::chrono::milliseconds readerSleeps;
    bool t3 = true;
    bool merged = false;
};

void PrintTo(const UnfoldCase &given, std::ostream *out)
{
    *out << given.name;
}

class Unfold : public testing::TestWithParam<UnfoldCase>
{
};

} // namespace

TEST_P(Unfold, GivesEveryEventOnceAndInOrder)
{
    const UnfoldCase &given = GetParam();
    Host host;
    Recording recording(given.words, given.t3);
    ASSERT_FALSE(recording.open(host).empty());
    Events expected = recording.events();
    if (given.merged) {
        const int32_t members[] = {1, 3};
        ASSERT_EQ(addMMerge(nullptr, members, 2, 1), int32_t{channels + 1});
        expected = merge(expected, {1, 3}, channels + 1, true);
    }
    Block block(given.blockSize);
    Finished finished;
    Events events;
    EXPECT_TRUE(ufStartBlock(nullptr, 0, 0, block.times.data(), block.channelCodes.data(), given.blockSize,
                             finished.get()));
    std::thread reader([&] {
        for (bool last = false; !last;) {
            last = finished.isSet();
            while (block.fetch(events) > 0 && given.readerSleeps == 0ms) {
            }
            std::this_thread::sleep_for(given.readerSleeps);
        }
    });
    EXPECT_TRUE(finished.wait());
    reader.join();
    expectSameEvents(events, expected);
    EXPECT_EQ(host.logged("overrun"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Blocks, Unfold,
                         testing::Values(UnfoldCase{"OneEvent", 1500, 1, 0ms},
                                         UnfoldCase{"OneEventMerged", 1000, 1, 0ms, true, true},
                                         UnfoldCase{"Few", 20'000, 7, 0ms, false},
                                         UnfoldCase{"Slow", 100'000, 9999, 20ms},
                                         UnfoldCase{"SlowMerged", 300'000, 50'000, 30ms, false, true},
                                         UnfoldCase{"Chunks", 3'000'000, 1'000'003, 1ms, false},
                                         UnfoldCase{"Store", 3'000'000, 8'388'608, 5ms},
                                         UnfoldCase{"BeyondStore", 3'000'000, 9'000'000, 50ms, true, true},
                                         UnfoldCase{"Empty", 0, 10, 0ms}),
                         [](const auto &given) { return given.param.name; });

TEST(UnfoldMeasure, FillsABlockThatTakesAll)
{
    for (const bool t3 : {false, true}) {
        SCOPED_TRACE(t3);
        Host host;
        Recording recording(200'000, t3);
        ASSERT_FALSE(recording.open(host).empty());
        Events expected = recording.events(), events;
        for (int run = 0; run < 2; ++run) { // the count starts at 0 again
            Block block(expected.size());
            uint64_t count = 12345;
            Finished finished;
            EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, block.times.data(), block.channelCodes.data(), &count,
                                  expected.size(), finished.get()));
            EXPECT_TRUE(finished.isSet());
            events.clear();
            Block::append(block.times, block.channelCodes, count, events);
            expectSameEvents(events, expected);
        }
        EXPECT_EQ(host.logged("store.size " + std::to_string(expected.size()) + " @"), 2u);
    }
}

TEST(UnfoldMeasure, TellsItsLifeInTheLog)
{
    Host host;
    Recording recording(100, true);
    ASSERT_FALSE(recording.open(host).empty());
    measuredEvents(1000);
    const auto lines = host.log();
    auto line = lines.begin();
    for (const char *part :
         {"UnfoldThread started", "UnfoldThread inputBuffSize 1000", "UnfoldThread stopped"}) {
        line = std::find_if(line, lines.end(),
                            [&](const std::string &text) { return text.find(part) != std::string::npos; });
        EXPECT_NE(line, lines.end()) << part << " in its place";
    }
}

TEST(UnfoldMeasure, StandsStillWithoutAReaderUntilItIsStopped)
{
    Host host;
    Recording recording(300'000, true);
    ASSERT_FALSE(recording.open(host).empty());
    constexpr size_t size = 1000;
    Block block(size);
    uint64_t count = 0;
    Finished finished;
    ufMeasure(nullptr, 0, 0, 0, block.times.data(), block.channelCodes.data(), &count, size, finished.get());
    EXPECT_FALSE(finished.wait(1s));
    stopMeasure(nullptr);
    EXPECT_TRUE(finished.wait(10s));
    EXPECT_EQ(host.logged("Nobody takes the data of a stopped measurement"), 1u);

    Events expected = recording.events(), events;
    expected.resize(size);
    EXPECT_EQ(block.fetch(events), size);
    expectSameEvents(events, expected);
    EXPECT_EQ(count, 0u);
    uint64_t untouched = 99;
    ufGetBlock(nullptr, nullptr, nullptr, &untouched);
    EXPECT_EQ(untouched, 99u);
}

TEST(UnfoldMeasure, AReaderThatKeepsFetchingGetsAllOfAStoppedRun)
{
    Host host;
    Recording recording(900'000, true); // one chunk, which is read before the stop
    ASSERT_FALSE(recording.open(host).empty());
    constexpr size_t size = 2000;
    Block block(size);
    Finished finished;
    ufStartBlock(nullptr, 0, 0, block.times.data(), block.channelCodes.data(), size, finished.get());
    Events events;
    ASSERT_TRUE(eventually([&] { return block.fetch(events) > 0; }));
    stopMeasure(nullptr);
    for (bool last = false; !last;) {
        last = finished.isSet();
        block.fetch(events);
        std::this_thread::sleep_for(1ms);
    }
    expectSameEvents(events, recording.events());
}

TEST(UnfoldMeasure, ALaterRunLeavesTheBlockOfAnEarlierOne)
{
    Host host;
    Recording recording(100'000, true);
    ASSERT_FALSE(recording.open(host).empty());
    Block earlier(500), later(500);
    Finished earlierFinished, laterFinished;
    uint64_t earlierCount = 0, laterCount = 0;
    ufMeasure(nullptr, 0, 0, 0, earlier.times.data(), earlier.channelCodes.data(), &earlierCount, 500,
              earlierFinished.get());
    ufMeasure(nullptr, 0, 0, 0, later.times.data(), later.channelCodes.data(), &laterCount, 500,
              laterFinished.get()); // ends the earlier one first
    ASSERT_TRUE(earlierFinished.isSet());
    std::fill(earlier.times.begin(), earlier.times.end(), 1u);
    earlierCount = 7;
    Events events;
    ASSERT_TRUE(eventually([&] { return later.fetch(events) > 0 && events.size() >= 5000; }));
    stopMeasure(nullptr);
    EXPECT_TRUE(laterFinished.wait(10s));
    EXPECT_EQ(earlierCount, 7u);
    EXPECT_EQ(earlier.times, std::vector<uint64_t>(500, 1));
}

TEST(UnfoldMeasure, NullMemoryIsNotWritten)
{
    Host host;
    Recording recording(50'000, true);
    ASSERT_FALSE(recording.open(host).empty());
    Events expected = recording.events();
    Finished finished;
    std::vector<uint64_t> times(expected.size());
    uint64_t count = 5;
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, nullptr, nullptr, nullptr, 100, finished.get()));
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, nullptr, nullptr, &count, 0, finished.get()));
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, times.data(), nullptr, &count, times.size(), nullptr));
    EXPECT_EQ(count, expected.size());
    EXPECT_EQ(times.back(), expected.back().time);
}

TEST(UnfoldMeasure, TellsAWaitingHostOfNewEvents)
{
    Host host;
    Recording recording(200'000, true);
    ASSERT_FALSE(recording.open(host).empty());
    setSequenceMode(0, 1, 0);
    constexpr size_t size = 5000;
    Block block(size);
    Finished finished;
    Events events;
    ufStartBlock(nullptr, 0, 0, block.times.data(), block.channelCodes.data(), size, finished.get());
    while (waitNewData(nullptr)) {
        gotNewData(nullptr);
        block.fetch(events);
    }
    EXPECT_TRUE(finished.isSet());
    block.fetch(events);
    expectSameEvents(events, recording.events());
}

TEST(TimesFromChannel, PicksThoseOfOneChannel)
{
    const uint8_t codes[] = {1, 2, 130, 1, 255, 0, 1};
    const uint64_t times[] = {10, 20, 30, 40, 50, 60, 70};
    const struct
    {
        int32_t channel;
        std::vector<uint64_t> expected;
    } rows[] = {{1, {10, 40, 70}}, {2, {20}}, {0, {60}}, {3, {}}, {130, {}}, {255, {}}, {257, {}}, {-1, {}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.channel);
        std::vector<uint64_t> result(7, 99);
        uint64_t count = 7;
        EXPECT_TRUE(getTimesFromChannelUF(codes, times, result.data(), row.channel, &count));
        ASSERT_EQ(count, row.expected.size());
        std::vector<uint64_t> expected = row.expected;
        expected.resize(7, 99); // nothing behind them is touched
        EXPECT_EQ(result, expected);
    }
    uint64_t none = 0;
    EXPECT_TRUE(getTimesFromChannelUF(nullptr, nullptr, nullptr, 1, &none));
    EXPECT_TRUE(getTimesFromChannelUF(codes, times, nullptr, 1, nullptr));
    EXPECT_EQ(none, 0u);
}
