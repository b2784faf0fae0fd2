// Recordings far larger than every buffer: each record is accounted for, with and without stages in the chain
// and whatever time the host takes. TESSEL_TEST_RECORDS sets their size.
#include "support/host.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr int mergeStages = 3;
constexpr size_t columns = 32768;

uint64_t recordCount()
{
    const char *given = getenv("TESSEL_TEST_RECORDS");
    return given ? std::strtoull(given, nullptr, 10) : isSanitized ? 2'000'000 : 6'000'000;
}

// Tells one sequence of T3 events from any other.
struct Order
{
    void add(uint32_t channel, uint32_t dtime)
    {
        hash = hash * 0x9E3779B97F4A7C15 + (channel << 16 | dtime) + 1;
    }

    uint64_t hash = 0;
};

// Writes a recording of pseudo-random events and counts them on the way: rows of the sync and the inputs.
class Source
{
public:
    bool write(const std::string &path, uint64_t records)
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = 3;
        params.numChannels = channels;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path.c_str(), &params);
        bool good = recording != nullptr;
        std::vector<uint32_t> block(1 << 16);
        for (uint64_t left = records; good && left > 0; left -= std::min<uint64_t>(left, block.size())) {
            const uint64_t size = std::min<uint64_t>(left, block.size());
            for (uint64_t i = 0; i < size; ++i) block[i] = next();
            good = tessel_recordingWrite(recording, block.data(), size);
        }
        return tessel_recordingClose(recording) && good;
    }

    std::vector<uint32_t> counts = std::vector<uint32_t>((channels + 1) * columns);
    Order order;

private:
    uint32_t next()
    {
        const uint32_t bits = random();
        if (bits % 16 == 0) return t3Overflow(1);
        const uint32_t channel = bits >> 30, dtime = bits >> 8 & 0x3FFF;
        ++counts[(channel + 1) * columns + dtime];
        order.add(channel + 1, dtime);
        return t3Event(channel, bits & 0x3FF, dtime);
    }

    std::mt19937 random{11};
};

// Eight stages of all kinds that leave what comes in as it is and add channels; the first `count` of them.
void addStages(int count)
{
    const int32_t members[] = {1, 2, 3}, gated[] = {2};
    for (int i = 0; i < std::min(count, mergeStages); ++i) addMMerge(nullptr, &members[i], 1, 1);
    if (count > 3) addMDelay(nullptr, 4, 5000, 1);
    if (count > 4) addMCoincidence(nullptr, members, 2, 1000, 1, 1, 1);
    if (count > 5) addMHerald(nullptr, 1, gated, 1, 0, 100'000, 0, 1);
    if (count > 6) addMSubStream(nullptr, 0, UINT64_MAX);
    if (count > 7) addMCountRate(nullptr, 1e9);
}

class LargeReplay : public testing::TestWithParam<int>
{
};

} // namespace

TEST_P(LargeReplay, AccountsForEveryRecord)
{
    const int stages = GetParam();
    Host host;
    Source source;
    const std::string path = host.folder().file("large.tgx");
    ASSERT_TRUE(source.write(path, recordCount()));
    ASSERT_FALSE(host.open(path).empty());
    addStages(stages);
    Counts counts(static_cast<size_t>(getNumAllChans(nullptr)), columns);
    EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), nullptr));
    EXPECT_TRUE(std::equal(source.counts.begin(), source.counts.end(), counts.data.begin()));
    for (int input = 1; input <= std::min(stages, mergeStages); ++input) // a copy of its one member
        EXPECT_EQ(counts.rowSum(size_t(channels + input)), counts.rowSum(size_t(input)));
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Stages, LargeReplay, testing::Values(0, 3, 8));

// The run stands still most of the time, with every store between the file and the block filled.
TEST(LargeUnfold, WaitsForAHostThatTakesABlockNowAndThen)
{
    constexpr int stages = 8;
    constexpr size_t storeBytes = (8 << 20) * (sizeof(uint64_t) + sizeof(uint8_t)); // of BufferSize events
    Host host;
    Source source;
    std::string path = host.folder().file("large.tgx");
    ASSERT_TRUE(source.write(path, recordCount()));
    ASSERT_FALSE(host.open(path).empty());
    addStages(stages);

    const size_t size = recordCount() / 25;
    std::vector<uint64_t> times(size), copyTimes(size);
    std::vector<uint8_t> codes(size), copyCodes(size);
    Order order;
    Finished finished;
    const size_t residentBefore = residentKiB();
    size_t resident = 0;
    ufStartBlock(nullptr, 0, 0, times.data(), codes.data(), size, finished.get());
    for (bool last = false; !last;) {
        last = finished.isSet();
        uint64_t count = 0;
        ufGetBlock(nullptr, copyTimes.data(), copyCodes.data(), &count);
        for (uint64_t i = 0; i < count; ++i)
            if (copyCodes[i] >= 1 && copyCodes[i] <= channels) order.add(copyCodes[i], copyTimes[i] & 0x7FFF);
        resident = std::max(resident, residentKiB());
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(order.hash, source.order.hash);
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
    // A store and a batch a stage, the final store, the block and the stream buffers.
    const size_t bound = ((2 * stages + 3) * storeBytes + size * 9) / 1024;
    EXPECT_TRUE(isSanitized || resident < residentBefore + bound) << resident - residentBefore;
}
