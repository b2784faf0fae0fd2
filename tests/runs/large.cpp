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
constexpr uint64_t binsT2 = 4096, binWidthT2 = 1000;

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
    explicit Source(bool isT3) : t3(isT3), counts(channels + 1, isT3 ? 32768 : binsT2)
    {
        std::fill(counts.data.begin(), counts.data.end(), 0u);
    }

    bool write(const std::string &path, uint64_t records)
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = t3 ? 3 : 2;
        params.numChannels = channels;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path.c_str(), &params);
        bool good = recording != nullptr;
        std::vector<uint32_t> block(1 << 16);
        for (uint64_t left = records; good && left > 0; left -= std::min<uint64_t>(left, block.size())) {
            uint64_t size = std::min<uint64_t>(left, block.size());
            for (uint64_t i = 0; i < size; ++i) block[i] = t3 ? nextT3() : nextT2();
            good = tessel_recordingWrite(recording, block.data(), size);
        }
        return tessel_recordingClose(recording) && good;
    }

    const Counts &expected() const { return counts; }
    uint64_t order() const { return t3Order.hash; }

private:
    uint32_t nextT3()
    {
        uint32_t bits = random();
        if (bits % 16 == 0) return t3Overflow(1);
        uint32_t channel = bits >> 30, dtime = bits >> 8 & 0x3FFF;
        ++counts.data[(channel + 1) * 32768 + dtime];
        t3Order.add(channel + 1, dtime);
        return t3Event(channel, bits & 0x3FF, dtime);
    }

    // Time goes on by up to 2^18 ps an event; a wrap of the 25 bits is an overflow record of its own.
    uint32_t nextT2()
    {
        if (owed) {
            owed = false;
            return emitT2();
        }
        uint32_t bits = random();
        time += bits & 0x3FFFF;
        code = bits >> 28;
        if (time / 33554432 != wraps) {
            wraps = time / 33554432;
            owed = true;
            return t2Overflow(1);
        }
        return emitT2();
    }

    uint32_t emitT2()
    {
        bool isSync = code < 4;
        uint32_t row = isSync ? 0 : 1 + code % channels;
        uint64_t bin = (time - lastSync) / binWidthT2;
        if (lastSync != 0 && bin < binsT2) ++counts.data[row * binsT2 + bin];
        if (isSync) lastSync = time;
        auto tag = static_cast<uint32_t>(time % 33554432);
        return isSync ? t2Sync(tag) : t2Event(row - 1, tag);
    }

    bool t3;
    Counts counts;
    Order t3Order;
    std::mt19937 random{11};
    uint64_t time = 0, wraps = 0, lastSync = 0;
    uint32_t code = 0;
    bool owed = false; // an event waits behind its overflow record
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

class LargeReplay : public testing::TestWithParam<std::tuple<bool, int>>
{
};

} // namespace

TEST_P(LargeReplay, AccountsForEveryRecord)
{
    auto [t3, stages] = GetParam();
    Host host;
    Source source(t3);
    std::string path = host.folder().file("large.tgx");
    ASSERT_TRUE(source.write(path, recordCount()));
    ASSERT_FALSE(host.open(path).empty());
    if (!t3) {
        setHistoT2NumBins(nullptr, binsT2);
        setHistoT2BinWidth(nullptr, binWidthT2);
    }
    addStages(stages);

    Counts counts(static_cast<size_t>(getNumAllChans(nullptr)), source.expected().columns);
    Finished finished;
    ASSERT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
    const auto &expected = source.expected().data;
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), counts.data.begin()));
    for (int input = 1; input <= std::min(stages, mergeStages);
         ++input) // a merged channel is a copy of its one member
        EXPECT_EQ(counts.rowSum(size_t(channels + input)), counts.rowSum(size_t(input)));
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
}

// The run stands still most of the time, with every store between the file and the block filled.
TEST(LargeUnfold, WaitsForAHostThatTakesABlockNowAndThen)
{
    constexpr int stages = 8;
    constexpr size_t storeBytes = (8 << 20) * (sizeof(uint64_t) + sizeof(uint8_t)); // of BufferSize events
    Host host;
    Source source(true);
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
    EXPECT_EQ(order.hash, source.order());
    EXPECT_EQ(described("NumRecs"), static_cast<double>(recordCount()));
    EXPECT_EQ(host.logged("overrun"), 0u);
    // A store and a batch a stage, the final store, the block and the stream buffers.
    const size_t bound = ((2 * stages + 3) * storeBytes + size * 9) / 1024;
    EXPECT_TRUE(isSanitized || resident < residentBefore + bound) << resident - residentBefore;
}

INSTANTIATE_TEST_SUITE_P(Streams, LargeReplay, testing::Combine(testing::Bool(), testing::Values(0, 3, 8)),
                         [](const auto &given) {
                             return std::string(std::get<0>(given.param) ? "t3" : "t2") + "Stages" +
                                    std::to_string(std::get<1>(given.param));
                         });
