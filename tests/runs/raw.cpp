// Record words in the caller's block: every word once and in order, whatever the block's size and however its
// reader behaves.
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

std::vector<uint32_t> openRecording(Host &host, size_t count)
{
    auto words = randomWords({.count = count, .seed = 31});
    EXPECT_FALSE(host.open(TgxFile::t3(4), words).empty());
    return words;
}

uint64_t fetch(std::vector<uint32_t> &copy, std::vector<uint32_t> &got)
{
    uint64_t count = 0;
    EXPECT_TRUE(rawGetBlock(nullptr, copy.data(), &count));
    got.insert(got.end(), copy.begin(), copy.begin() + static_cast<ptrdiff_t>(count));
    return count;
}

struct RawCase
{
    const char *name;
    size_t words, blockSize;
    std::chrono::milliseconds readerSleeps;
};

void PrintTo(const RawCase &given, std::ostream *out)
{
    *out << given.name;
}

class Raw : public testing::TestWithParam<RawCase>
{
};

} // namespace

TEST_P(Raw, GivesEveryWordOnceAndInOrder)
{
    const RawCase &given = GetParam();
    Host host;
    auto words = openRecording(host, given.words);
    std::vector<uint32_t> block(given.blockSize), copy(given.blockSize), got;
    Finished finished;
    EXPECT_TRUE(rawStartBlock(nullptr, 0, 0, block.data(), block.size(), finished.get()));
    std::thread reader([&] {
        for (bool last = false; !last;) {
            last = finished.isSet();
            while (fetch(copy, got) > 0 && given.readerSleeps == 0ms) {
            }
            std::this_thread::sleep_for(given.readerSleeps);
        }
    });
    EXPECT_TRUE(finished.wait());
    reader.join();
    EXPECT_TRUE(got == words) << got.size() << " words of " << words.size();
    EXPECT_EQ(host.logged("overrun"), 0u);
    EXPECT_EQ(described("NumRecs"), static_cast<double>(words.size()));
}

INSTANTIATE_TEST_SUITE_P(Blocks, Raw,
                         testing::Values(RawCase{"OneWord", 1500, 1, 0ms}, RawCase{"Few", 20'000, 7, 0ms},
                                         RawCase{"Slow", 100'000, 9999, 20ms},
                                         RawCase{"Chunk", 3'000'000, 1'048'576, 1ms},
                                         RawCase{"Store", 3'000'000, 8'388'608, 5ms},
                                         RawCase{"BeyondStore", 9'000'000, 9'000'000, 50ms},
                                         RawCase{"Empty", 0, 10, 0ms}),
                         [](const auto &given) { return given.param.name; });

TEST(RawMeasure, FillsABlockThatTakesAll)
{
    Host host;
    auto words = openRecording(host, 200'000);
    for (int run = 0; run < 2; ++run) { // the count starts at 0 again
        std::vector<uint32_t> block(words.size());
        uint64_t count = 12345;
        Finished finished;
        EXPECT_TRUE(rawMeasure(nullptr, 0, 1, 0, block.data(), &count, block.size(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(count, words.size());
        EXPECT_TRUE(block == words);
    }
}

TEST(RawMeasure, StandsStillWithoutAReaderUntilItIsStopped)
{
    Host host;
    auto words = openRecording(host, 300'000);
    std::vector<uint32_t> block(1000), got;
    uint64_t count = 0;
    Finished finished;
    rawMeasure(nullptr, 0, 0, 0, block.data(), &count, block.size(), finished.get());
    EXPECT_FALSE(finished.wait(1s));
    stopMeasure(nullptr);
    EXPECT_TRUE(finished.wait(10s));
    EXPECT_EQ(count, block.size());
    std::vector<uint32_t> copy(block.size());
    EXPECT_EQ(fetch(copy, got), block.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), words.begin()));
    uint64_t untouched = 99;
    rawGetBlock(nullptr, copy.data(), &untouched);
    EXPECT_EQ(untouched, 99u);
}

TEST(RawMeasure, NeedsNoScaleOfTime)
{
    Host host;
    auto words = randomWords({.count = 1000, .seed = 31});
    ASSERT_FALSE(host.open(TgxFile::t3(4).tag("MeasDesc_Resolution", 0.0), words).empty());
    std::vector<uint32_t> block(words.size());
    uint64_t count = 0;
    Finished finished;
    EXPECT_TRUE(rawMeasure(nullptr, 0, 1, 0, block.data(), &count, block.size(), finished.get()));
    EXPECT_EQ(count, words.size());
    EXPECT_TRUE(block == words);
}

TEST(RawMeasure, RunsWithoutABlock)
{
    Host host;
    auto words = openRecording(host, 50'000);
    struct
    {
        const char *name;
        bool (*run)(uint8_t *finished);
    } rows[] = {
        {"export", [](uint8_t *finished) { return exportStreamMeasure(nullptr, 0, 1, 0, finished); }},
        {"null block",
         [](uint8_t *finished) { return rawMeasure(nullptr, 0, 1, 0, nullptr, nullptr, 100, finished); }},
        {"no capacity",
         [](uint8_t *finished) {
             uint32_t word = 5;
             uint64_t count = 5;
             bool done = rawMeasure(nullptr, 0, 1, 0, &word, &count, 0, finished);
             return done && word == 5 && count == 0;
         }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Finished finished;
        EXPECT_TRUE(row.run(finished.get()));
        EXPECT_TRUE(finished.isSet());
        EXPECT_EQ(described("NumRecs"), static_cast<double>(words.size()));
        uint64_t count = 99;
        EXPECT_TRUE(rawGetBlock(nullptr, nullptr, &count));
        EXPECT_EQ(count, 99u);
    }
    EXPECT_TRUE(rawMeasure(nullptr, 0, 1, 0, nullptr, nullptr, 0, nullptr));
}
