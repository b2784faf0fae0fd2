// The stream itself in the caller's block, as record words or as decoded events: each once and in order,
// whatever the block's size and however its reader behaves.
#include "plain/stream.h"

#include "support/host.h"
#include "support/measured_events.h"
#include "support/random_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

using namespace Plain;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t channels = 4;
constexpr uint64_t resolution = 5;

enum class Form { Raw, T2, T3 }; // words of a T3 file, or events

// Opens a recording and gives what a run of it has to hand out; a word stands as the time of an event.
Events openRecording(Host &host, Form form, size_t count)
{
    const bool t3 = form != Form::T2;
    const auto words = randomWords({count, t3, 0.07, channels, 23});
    EXPECT_FALSE(
        host.open(t3 ? TgxFile::t3(channels, resolution) : TgxFile::t2(channels, resolution), words).empty());
    if (form != Form::Raw) return t3 ? decodeT3(words, channels) : decodeT2(words, channels, resolution);
    Events events;
    for (uint32_t word : words) events.push_back({word, 0});
    return events;
}

// The block of a run and what its reader has taken of it.
struct Block
{
    Block(Form form, size_t size)
        : isRaw(form == Form::Raw),
          capacity(size),
          words(isRaw ? size : 0),
          times(isRaw ? 0 : size),
          codes(times.size()),
          copyWords(words),
          copyTimes(times),
          copyCodes(codes)
    {
    }

    void start()
    {
        EXPECT_TRUE(isRaw ? rawStartBlock(nullptr, 0, 0, words.data(), capacity, finished.get())
                          : ufStartBlock(nullptr, 0, 0, times.data(), codes.data(), capacity, finished.get()));
    }
    void measure(uint8_t wait)
    {
        EXPECT_TRUE(isRaw ? rawMeasure(nullptr, 0, wait, 0, words.data(), &count, capacity, finished.get())
                          : ufMeasure(nullptr, 0, wait, 0, times.data(), codes.data(), &count, capacity,
                                      finished.get()));
    }
    // What stands in the block; nothing leaves the count as it was.
    uint64_t fetch()
    {
        uint64_t copied = 0;
        EXPECT_TRUE(isRaw ? rawGetBlock(nullptr, copyWords.data(), &copied)
                          : ufGetBlock(nullptr, copyTimes.data(), copyCodes.data(), &copied));
        append(copyWords, copyTimes, copyCodes, copied);
        return copied;
    }
    // The block itself.
    void take() { append(words, times, codes, count); }

    const bool isRaw;
    const size_t capacity;
    std::vector<uint32_t> words;
    std::vector<uint64_t> times;
    std::vector<uint8_t> codes;
    uint64_t count = 12345;
    Finished finished;
    Events got;

private:
    std::vector<uint32_t> copyWords;
    std::vector<uint64_t> copyTimes;
    std::vector<uint8_t> copyCodes;

    void append(const std::vector<uint32_t> &ofWords, const std::vector<uint64_t> &ofTimes,
                const std::vector<uint8_t> &ofCodes, uint64_t size)
    {
        for (uint64_t i = 0; i < size; ++i)
            got.push_back(isRaw ? Event{ofWords[i], 0} : Event{ofTimes[i], ofCodes[i]});
    }
};

class OfBothKinds : public testing::TestWithParam<Form>
{
};

} // namespace

TEST(Stream, GivesAllOnceAndInOrder)
{
    const struct
    {
        const char *name;
        Form form;
        size_t words, blockSize;
        std::chrono::milliseconds readerSleeps;
        bool merged = false;
    } cases[] = {
        {"raw, one word", Form::Raw, 1500, 1, 0ms},
        {"raw, slow", Form::Raw, 100'000, 9999, 20ms},
        {"raw, chunk", Form::Raw, 3'000'000, 1'048'576, 1ms},
        {"raw, beyond the store", Form::Raw, 9'000'000, 9'000'000, 50ms},
        {"raw, empty", Form::Raw, 0, 10, 0ms},
        {"one event, merged", Form::T3, 1000, 1, 0ms, true},
        {"few", Form::T2, 20'000, 7, 0ms},
        {"slow, merged", Form::T2, 300'000, 50'000, 30ms, true},
        {"chunks", Form::T2, 3'000'000, 1'000'003, 1ms},
        {"store", Form::T3, 3'000'000, 8'388'608, 5ms},
        {"beyond the store", Form::T3, 3'000'000, 9'000'000, 50ms, true},
        {"empty", Form::T3, 0, 10, 0ms},
    };
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        Events expected = openRecording(host, given.form, given.words);
        if (given.merged) {
            const int32_t members[] = {1, 3};
            ASSERT_EQ(addMMerge(nullptr, members, 2, 1), int32_t{channels + 1});
            expected = merge(expected, {1, 3}, channels + 1, true);
        }
        Block block(given.form, given.blockSize);
        block.start();
        for (bool last = false; !last;) {
            last = block.finished.isSet();
            while (block.fetch() > 0 && given.readerSleeps == 0ms) {
            }
            std::this_thread::sleep_for(given.readerSleeps); // a slow host
        }
        expectSameEvents(block.got, expected);
        EXPECT_EQ(host.logged("overrun"), 0u);
        EXPECT_EQ(described("NumRecs"), static_cast<double>(given.words));
    }
}

TEST_P(OfBothKinds, StandStillWithoutAReaderUntilTheyAreStopped)
{
    Host host;
    Events expected = openRecording(host, GetParam(), 300'000);
    Block block(GetParam(), 1000);
    block.measure(0);
    EXPECT_TRUE(eventually([] { return described("NumRecs") == 300'000; })); // all is read
    EXPECT_FALSE(block.finished.isSet());
    const auto start = std::chrono::steady_clock::now();
    stopMeasure(nullptr);
    EXPECT_TRUE(block.finished.wait());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 8s); // five seconds of patience
    EXPECT_EQ(host.logged("Nobody takes the data of a stopped measurement"), 1u);
    EXPECT_EQ(block.fetch(), 1000u);
    EXPECT_EQ(block.count, 0u);
    expected.resize(1000);
    expectSameEvents(block.got, expected);
    uint64_t untouched = 99;
    EXPECT_TRUE(block.isRaw ? rawGetBlock(nullptr, nullptr, &untouched)
                            : ufGetBlock(nullptr, nullptr, nullptr, &untouched));
    EXPECT_EQ(untouched, 99u);
}

TEST_P(OfBothKinds, GiveAReaderThatGoesOnAllOfAStoppedRun)
{
    Host host;
    const Events expected =
        openRecording(host, GetParam(), 900'000); // one chunk, which is read before the stop
    Block block(GetParam(), 2000);
    block.start();
    ASSERT_TRUE(eventually([&] { return block.fetch() > 0; }));
    stopMeasure(nullptr);
    for (bool last = false; !last;) {
        last = block.finished.isSet();
        block.fetch();
    }
    expectSameEvents(block.got, expected);
}

TEST_P(OfBothKinds, LeaveTheBlockOfAnEarlierRun)
{
    Host host;
    openRecording(host, GetParam(), 100'000);
    Block earlier(GetParam(), 500), later(GetParam(), 500);
    earlier.measure(0);
    later.measure(0); // ends the earlier one first
    ASSERT_TRUE(earlier.finished.isSet());
    std::fill(earlier.times.begin(), earlier.times.end(), 1u);
    std::fill(earlier.words.begin(), earlier.words.end(), 1u);
    earlier.count = 7;
    ASSERT_TRUE(eventually([&] { return later.fetch() > 0 && later.got.size() >= 5000; }));
    closeDevice(0);
    EXPECT_TRUE(later.finished.isSet());
    EXPECT_EQ(earlier.count, 7u);
    EXPECT_TRUE(std::ranges::all_of(earlier.times, [](uint64_t time) { return time == 1; }));
    EXPECT_TRUE(std::ranges::all_of(earlier.words, [](uint32_t word) { return word == 1; }));
}

INSTANTIATE_TEST_SUITE_P(RawT2T3, OfBothKinds, testing::Values(Form::Raw, Form::T2, Form::T3));

TEST(RawMeasure, NeedsNoScaleOfTimeAndNoBlock)
{
    Host host;
    const auto words = randomWords({.count = 1000, .seed = 31});
    ASSERT_FALSE(host.open(TgxFile::t3(4).tag("MeasDesc_Resolution", 0.0), words).empty());
    std::vector<uint32_t> block(words.size());
    uint64_t count = 0;
    EXPECT_TRUE(rawMeasure(nullptr, 0, 1, 0, block.data(), &count, block.size(), nullptr));
    EXPECT_EQ(count, words.size());
    EXPECT_TRUE(block == words);

    uint32_t word = 5;
    const std::function<bool(uint8_t *)> withoutBlock[] = {
        [](uint8_t *finished) { return exportStreamMeasure(nullptr, 0, 1, 0, finished); },
        [](uint8_t *finished) { return rawMeasure(nullptr, 0, 1, 0, nullptr, nullptr, 100, finished); },
        [&](uint8_t *finished) { return rawMeasure(nullptr, 0, 1, 0, &word, &count, 0, finished); },
    };
    for (const auto &run : withoutBlock) {
        Finished finished;
        EXPECT_TRUE(run(finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(described("NumRecs"), static_cast<double>(words.size()));
        uint64_t untouched = 99;
        EXPECT_TRUE(rawGetBlock(nullptr, nullptr, &untouched));
        EXPECT_EQ(untouched, 99u);
    }
    EXPECT_EQ(word, 5u);
    EXPECT_EQ(count, 0u);
}

TEST(UnfoldMeasure, NullMemoryIsNotWritten)
{
    Host host;
    const Events expected = openRecording(host, Form::T3, 50'000);
    std::vector<uint64_t> times(expected.size());
    uint64_t count = 5;
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, nullptr, nullptr, nullptr, 100, nullptr));
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, nullptr, nullptr, &count, 0, nullptr));
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(ufMeasure(nullptr, 0, 1, 0, times.data(), nullptr, &count, times.size(), nullptr));
    EXPECT_EQ(count, expected.size());
    EXPECT_EQ(times.back(), expected.back().time);
}

TEST(UnfoldMeasure, TellsAWaitingHostOfNewEventsAndTheLogOfItsLife)
{
    Host host;
    const Events expected = openRecording(host, Form::T3, 200'000);
    setSequenceMode(0, 1, 0);
    Block block(Form::T3, 5000);
    block.start();
    while (waitNewData(nullptr)) {
        gotNewData(nullptr);
        block.fetch();
    }
    EXPECT_TRUE(block.finished.isSet());
    block.fetch();
    expectSameEvents(block.got, expected);
    for (const char *line : {"store.size 5000 @", "UnfoldThread started", "UnfoldThread inputBuffSize 5000",
                             "UnfoldThread stopped"})
        EXPECT_EQ(host.logged(line), 1u) << line;
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
        std::vector<uint64_t> result(7, 99), expected = row.expected;
        uint64_t count = 7;
        EXPECT_TRUE(getTimesFromChannelUF(codes, times, result.data(), row.channel, &count));
        EXPECT_EQ(count, row.expected.size()) << row.channel;
        expected.resize(7, 99); // nothing behind them is touched
        EXPECT_EQ(result, expected) << row.channel;
    }
    uint64_t none = 0;
    EXPECT_TRUE(getTimesFromChannelUF(nullptr, nullptr, nullptr, 1, &none));
    EXPECT_TRUE(getTimesFromChannelUF(codes, times, nullptr, 1, nullptr));
    EXPECT_EQ(none, 0u);
}
